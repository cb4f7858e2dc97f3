#include <NODOCore/base/Files.h>
#include <testing/DiskFull.h>
#include <testing/TemporaryFolder.h>
#include <testing/UnprivilegedUser.h>

#include <cerrno>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <system_error>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

namespace nodo {
namespace {

namespace fs = std::filesystem;
using test::DiskFull;
using test::TemporaryFolder;
using test::UnprivilegedUser;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class ReplaceFileTest : public ::testing::Test {
 protected:
  struct stat status(const fs::path& name) {
    struct stat found {};

    EXPECT_EQ(::lstat((folder / name).c_str(), &found), 0) << name;
    return found;
  }

  mode_t mode(const fs::path& name) { return status(name).st_mode & 07777U; }

  void expectError(const fs::path& path, int code) {
    try {
      replaceFile(path, "new");
      FAIL() << path << " was replaced";
    } catch (const std::system_error& error) {
      EXPECT_EQ(error.code(), std::error_code(code, std::generic_category())) << error.what();
      EXPECT_THAT(error.what(), HasSubstr(path.string()));
    }
  }

  TemporaryFolder folder;
};

TEST_F(ReplaceFileTest, ANewFileIsMadeWithTheProcessesDefaultMode) {
  const mode_t before = ::umask(027);
  replaceFile(folder / "file", "content");
  ::umask(before);
  EXPECT_EQ(folder.read("file"), "content");
  EXPECT_EQ(mode("file"), 0640U);
  EXPECT_THAT(folder.names(), ElementsAre("file"));
}

TEST_F(ReplaceFileTest, TheContentIsReplacedWhole) {
  for (const std::string& content :
       {std::string("longer content"), std::string(), std::string("a\0\xFF\n", 4),
        std::string(1'000'000, 'x'), std::string("short")}) {
    replaceFile(folder / "file", content);
    EXPECT_EQ(folder.read("file"), content);
  }
  EXPECT_THAT(folder.names(), ElementsAre("file"));
}

TEST_F(ReplaceFileTest, AnExistingFileKeepsItsMode) {
  const mode_t before = ::umask(077);
  for (const mode_t kept : std::initializer_list<mode_t>{0600, 0644, 0666, 0640, 0755, 0400}) {
    folder.write("file", "old");
    ASSERT_EQ(::chmod((folder / "file").c_str(), kept), 0);
    replaceFile(folder / "file", "new");
    EXPECT_EQ(mode("file"), kept);
    EXPECT_EQ(folder.read("file"), "new");
    fs::remove(folder / "file");
  }
  ::umask(before);
}

TEST_F(ReplaceFileTest, RootKeepsTheOwner) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "only root may give files away";
  }
  folder.write("file", "old");
  ASSERT_EQ(::chown((folder / "file").c_str(), 12345, 23456), 0);
  ASSERT_EQ(::chmod((folder / "file").c_str(), 06750), 0);
  replaceFile(folder / "file", "new");
  EXPECT_EQ(status("file").st_uid, 12345U);
  EXPECT_EQ(status("file").st_gid, 23456U);
  EXPECT_EQ(mode("file"), 06750U);
}

TEST_F(ReplaceFileTest, AUserReplacesAFileOfSomebodyElseByOneOfTheirOwn) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "only root can set this scene";
  }
  folder.write("file", "old");
  fs::permissions(folder / "file", fs::perms(0640));
  fs::permissions(folder.path(), fs::perms(0777));
  {
    const UnprivilegedUser user;
    replaceFile(folder / "file", "new");
  }
  EXPECT_EQ(folder.read("file"), "new");
  EXPECT_NE(status("file").st_uid, 0U);
  EXPECT_EQ(mode("file"), 0640U);
}

TEST_F(ReplaceFileTest, ASymbolicLinkIsItselfReplaced) {
  folder.write("target", "precious");
  fs::permissions(folder / "target", fs::perms(0600));
  fs::create_symlink("target", folder / "link");
  const mode_t before = ::umask(022);
  replaceFile(folder / "link", "new");
  ::umask(before);
  EXPECT_EQ(folder.read("target"), "precious");
  EXPECT_TRUE(S_ISREG(status("link").st_mode));
  EXPECT_EQ(mode("link"), 0644U) << "neither the link's mode nor its target's";
  EXPECT_EQ(folder.read("link"), "new");
}

TEST_F(ReplaceFileTest, ADanglingLinkLeadsNowhereElse) {
  fs::create_symlink("elsewhere", folder / "link");
  replaceFile(folder / "link", "new");
  EXPECT_THAT(folder.names(), ElementsAre("link"));
  EXPECT_TRUE(S_ISREG(status("link").st_mode));
}

TEST_F(ReplaceFileTest, AnotherNameOfTheOldFileKeepsTheOldContent) {
  folder.write("file", "old");
  fs::create_hard_link(folder / "file", folder / "other name");
  replaceFile(folder / "file", "new");
  EXPECT_EQ(folder.read("other name"), "old");
}

TEST_F(ReplaceFileTest, AFolderInItsPlaceStays) {
  folder.write("file/inside", "precious");
  expectError(folder / "file", EISDIR);
  EXPECT_EQ(folder.read("file/inside"), "precious");
  EXPECT_THAT(folder.names(), ElementsAre("file"));
}

TEST_F(ReplaceFileTest, AFullDiskLeavesTheOldFile) {
  folder.write("file", "old");
  {
    const DiskFull full;
    expectError(folder / "file", EFBIG);
    expectError(folder / "new file", EFBIG);
  }
  EXPECT_EQ(folder.read("file"), "old");
  EXPECT_THAT(folder.names(), ElementsAre("file"));
}

TEST_F(ReplaceFileTest, AMissingFolderIsAnError) {
  expectError(folder / "none" / "file", ENOENT);
  EXPECT_THAT(folder.names(), IsEmpty());
  folder.write("file", "x");
  expectError(folder / "file" / "below a file", ENOTDIR);
}

TEST_F(ReplaceFileTest, AFolderThatMayNotBeWrittenToIsAnError) {
  folder.write("file", "old");
  fs::permissions(folder.path(), fs::perms(0555));
  {
    const UnprivilegedUser user;
    expectError(folder / "file", EACCES);
  }
  fs::permissions(folder.path(), fs::perms(0755));
  EXPECT_EQ(folder.read("file"), "old");
  EXPECT_THAT(folder.names(), ElementsAre("file"));
}

TEST_F(ReplaceFileTest, ARelativePathIsBelowTheWorkingFolder) {
  const fs::path before = fs::current_path();
  fs::current_path(folder.path());
  replaceFile("file", "content");
  fs::current_path(before);
  EXPECT_EQ(folder.read("file"), "content");
}

TEST_F(ReplaceFileTest, ANameTooLongForATemporaryBesideItIsAnError) {
  expectError(folder / std::string(250, 'x'), ENAMETOOLONG);
  EXPECT_THAT(folder.names(), IsEmpty());
}

}  // namespace
}  // namespace nodo
