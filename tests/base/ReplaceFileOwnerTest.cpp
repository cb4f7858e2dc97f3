#include <NODOCore/base/Files.h>
#include <NODOCore/state/StateStore.h>
#include <testing/CannotGiveFilesAway.h>
#include <testing/TemporaryFolder.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <system_error>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

namespace nodo {
namespace {

using test::CannotGiveFilesAway;

constexpr uid_t otherOwner = 12345;
constexpr gid_t otherGroup = 23456;

// A root who may not give files away, as the daemon's unit leaves it.
class ReplaceFileOwnerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) {
      GTEST_SKIP() << "only root can set this scene";
    }
    folder.write("file", "old");
  }

  struct stat status(const char* name) const {
    struct stat found {};

    EXPECT_EQ(::lstat((folder / name).c_str(), &found), 0) << name;
    return found;
  }

  void give(const char* name, uid_t owner, gid_t group, mode_t mode) const {
    ASSERT_EQ(::chown((folder / name).c_str(), owner, group), 0);
    ASSERT_EQ(::chmod((folder / name).c_str(), mode), 0);
  }

  mode_t modeAfterReplacing(uid_t owner, gid_t group, mode_t mode) const {
    give("file", owner, group, mode);
    const CannotGiveFilesAway restricted;
    replaceFile(folder / "file", "new");
    return status("file").st_mode & 07777U;
  }

  test::TemporaryFolder folder;
};

TEST_F(ReplaceFileOwnerTest, AFileOfAnotherGroupIsReplacedByAnOwnOne) {
  EXPECT_EQ(modeAfterReplacing(0, otherGroup, 0644), 0644U);
  EXPECT_EQ(folder.read("file"), "new");
  EXPECT_EQ(status("file").st_uid, 0U);
  EXPECT_EQ(status("file").st_gid, ::getegid());
}

TEST_F(ReplaceFileOwnerTest, NobodyGainsRightsByTheChange) {
  EXPECT_EQ(modeAfterReplacing(0, otherGroup, 0640), 0600U) << "root's group had none";
  EXPECT_EQ(modeAfterReplacing(0, otherGroup, 0604), 0600U) << "the other group had none";
  EXPECT_EQ(modeAfterReplacing(0, otherGroup, 0664), 0644U);
  EXPECT_EQ(modeAfterReplacing(otherOwner, 0, 0244), 0200U) << "the other owner had none";
  EXPECT_EQ(modeAfterReplacing(otherOwner, otherGroup, 06755), 0755U);
}

TEST_F(ReplaceFileOwnerTest, AnOwnFileKeepsItsMode) {
  EXPECT_EQ(modeAfterReplacing(0, ::getegid(), 0640), 0640U);
}

TEST_F(ReplaceFileOwnerTest, AFileOfAPersonsStaysTheirsOrAsItIs) {
  give("file", otherOwner, otherGroup, 0640);
  const auto update = [this] {
    updateFileThroughLinks(folder / "file", [](const FileContent&) { return "new"; });
  };
  try {
    const CannotGiveFilesAway restricted;
    update();
    FAIL() << "it was taken away";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code().value(), EPERM) << error.what();
  }
  EXPECT_EQ(folder.read("file"), "old");
  EXPECT_EQ(folder.names().size(), 1U);
  update();
  EXPECT_EQ(folder.read("file"), "new");
  EXPECT_EQ(status("file").st_uid, otherOwner);
  EXPECT_EQ(status("file").st_mode & 07777U, 0640U);
}

TEST_F(ReplaceFileOwnerTest, AStateThatWasGivenAwayIsSavedAllTheSame) {
  const StateStore store{folder.path()};
  NODOState state = NODOState::fresh(dateFromSeconds(1769860800));
  store.save(state);
  give("state.json", 0, otherGroup, 0644);
  state.ownsSleepDisable = true;
  const CannotGiveFilesAway restricted;
  store.save(state);
  EXPECT_EQ(store.load(), state);
}

}  // namespace
}  // namespace nodo
