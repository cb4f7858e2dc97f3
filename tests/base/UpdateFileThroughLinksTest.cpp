#include <NODOCore/base/Files.h>
#include <testing/DiskFull.h>
#include <testing/TemporaryFolder.h>
#include <testing/UnprivilegedUser.h>

#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

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

FileContent withX(const FileContent& before) {
  return before.value_or("nothing") + "x";
}

class UpdateFileThroughLinksTest : public ::testing::Test {
 protected:
  struct stat status(const fs::path& name) {
    struct stat found {};

    EXPECT_EQ(::lstat((folder / name).c_str(), &found), 0) << name;
    return found;
  }

  void expectError(const fs::path& name, int code) {
    try {
      updateFileThroughLinks(folder / name, withX);
      FAIL() << name << " was changed";
    } catch (const std::system_error& error) {
      EXPECT_EQ(error.code(), std::error_code(code, std::generic_category())) << error.what();
      EXPECT_THAT(error.what(), HasSubstr((folder / name).string()));
    }
  }

  TemporaryFolder folder;
};

TEST_F(UpdateFileThroughLinksTest, AFileBecomesWhatTheEditMakesOfIt) {
  folder.write("file", "old");
  EXPECT_TRUE(updateFileThroughLinks(folder / "file", withX));
  EXPECT_EQ(folder.read("file"), "oldx");
  EXPECT_THAT(folder.names(), ElementsAre("file"));
}

TEST_F(UpdateFileThroughLinksTest, AFileThatIsNotThereIsMade) {
  EXPECT_TRUE(updateFileThroughLinks(folder / "file", withX));
  EXPECT_EQ(folder.read("file"), "nothingx");
}

TEST_F(UpdateFileThroughLinksTest, AnEmptyFileIsNotAMissingOne) {
  folder.write("file", "");
  EXPECT_TRUE(updateFileThroughLinks(folder / "file", withX));
  EXPECT_EQ(folder.read("file"), "x");
}

TEST_F(UpdateFileThroughLinksTest, WhatTheEditLeavesAloneIsNotWritten) {
  folder.write("file", "old");
  const auto inode = status("file").st_ino;
  const auto same = [](const FileContent& before) { return before; };
  EXPECT_FALSE(updateFileThroughLinks(folder / "file", same));
  EXPECT_FALSE(updateFileThroughLinks(folder / "none", same));
  EXPECT_EQ(status("file").st_ino, inode);
  EXPECT_THAT(folder.names(), ElementsAre("file"));
}

TEST_F(UpdateFileThroughLinksTest, LinksStayAndTheFileThatTheyLeadToIsReplaced) {
  folder.write("far/away/target", "old");
  fs::permissions(folder / "far/away/target", fs::perms(0600));
  fs::create_directory(folder / "near");
  fs::create_symlink("../far/second", folder / "near/first");
  fs::create_symlink(folder / "far/away/target", folder / "far/second");
  EXPECT_TRUE(updateFileThroughLinks(folder / "near/first", withX));
  EXPECT_EQ(fs::read_symlink(folder / "near/first"), "../far/second");
  EXPECT_EQ(fs::read_symlink(folder / "far/second"), folder / "far/away/target");
  EXPECT_EQ(folder.read("far/away/target"), "oldx");
  EXPECT_EQ(status("far/away/target").st_mode & 07777U, 0600U);
}

TEST_F(UpdateFileThroughLinksTest, ALinkIsRelativeToTheFolderInWhichItReallyStands) {
  folder.write("real/deep/target", "old");
  fs::create_directory(folder / "real/deep/inner");
  fs::create_symlink("../target", folder / "real/deep/inner/link");
  fs::create_directory_symlink("real/deep/inner", folder / "shortcut");
  EXPECT_TRUE(updateFileThroughLinks(folder / "shortcut/link", withX));
  EXPECT_EQ(folder.read("real/deep/target"), "oldx");
  EXPECT_TRUE(fs::is_symlink(folder / "real/deep/inner/link"));
}

TEST_F(UpdateFileThroughLinksTest, TheFileThatALinkPromisesIsMade) {
  fs::create_symlink("elsewhere", folder / "link");
  EXPECT_TRUE(updateFileThroughLinks(folder / "link", withX));
  EXPECT_TRUE(fs::is_symlink(folder / "link"));
  EXPECT_EQ(folder.read("elsewhere"), "nothingx");
}

TEST_F(UpdateFileThroughLinksTest, ALinkThatLeadsToAMissingFolderIsAnError) {
  fs::create_symlink("none/elsewhere", folder / "link");
  try {
    updateFileThroughLinks(folder / "link", withX);
    FAIL();
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code().value(), ENOENT);
    EXPECT_THAT(error.what(), HasSubstr((folder / "none/elsewhere").string()));
  }
  EXPECT_THAT(folder.names(), ElementsAre("link"));
}

TEST_F(UpdateFileThroughLinksTest, LinksInACircleAreAnError) {
  fs::create_symlink("second", folder / "first");
  fs::create_symlink("first", folder / "second");
  expectError("first", ELOOP);
  EXPECT_THAT(folder.names(), ElementsAre("first", "second"));
}

TEST_F(UpdateFileThroughLinksTest, RemovingTakesTheLinkAndLeavesItsTarget) {
  folder.write("target", "precious");
  fs::create_symlink("target", folder / "link");
  EXPECT_TRUE(
      updateFileThroughLinks(folder / "link", [](const FileContent&) { return FileContent(); }));
  EXPECT_THAT(folder.names(), ElementsAre("target"));
  EXPECT_EQ(folder.read("target"), "precious");
}

TEST_F(UpdateFileThroughLinksTest, RootKeepsTheOwnerOfTheTarget) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "only root may give files away";
  }
  folder.write("target", "old");
  ASSERT_EQ(::chown((folder / "target").c_str(), 12345, 23456), 0);
  fs::create_symlink("target", folder / "link");
  EXPECT_TRUE(updateFileThroughLinks(folder / "link", withX));
  EXPECT_EQ(status("target").st_uid, 12345U);
  EXPECT_EQ(status("target").st_gid, 23456U);
}

TEST_F(UpdateFileThroughLinksTest, AFileThatChangesMeanwhileIsReadAgain) {
  folder.write("file", "old");
  int asked = 0;
  EXPECT_TRUE(updateFileThroughLinks(folder / "file", [&](const FileContent& before) {
    if (++asked == 1) {
      folder.write("file", "somebody else's");
    }
    return withX(before);
  }));
  EXPECT_EQ(asked, 2);
  EXPECT_EQ(folder.read("file"), "somebody else'sx");
  EXPECT_THAT(folder.names(), ElementsAre("file"));
}

TEST_F(UpdateFileThroughLinksTest, AFileThatAppearsMeanwhileIsNotOverwritten) {
  int asked = 0;
  EXPECT_TRUE(updateFileThroughLinks(folder / "file", [&](const FileContent& before) {
    if (++asked == 1) {
      folder.write("file", "somebody else's");
    }
    return withX(before);
  }));
  EXPECT_EQ(folder.read("file"), "somebody else'sx");
}

TEST_F(UpdateFileThroughLinksTest, AFileThatChangesMeanwhileIsNotRemoved) {
  folder.write("file", "ours");
  EXPECT_FALSE(updateFileThroughLinks(folder / "file", [&](const FileContent& before) {
    if (before == "ours") {
      folder.write("file", "somebody else's");
      return FileContent();
    }
    return before;
  }));
  EXPECT_EQ(folder.read("file"), "somebody else's");
}

TEST_F(UpdateFileThroughLinksTest, AFileThatNeverStopsChangingIsGivenUp) {
  folder.write("file", "0");
  int asked = 0;
  try {
    updateFileThroughLinks(folder / "file", [&](const FileContent& before) {
      folder.write("file", std::to_string(++asked));
      return withX(before);
    });
    FAIL();
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code().value(), EAGAIN);
    EXPECT_THAT(error.what(), HasSubstr((folder / "file").string()));
  }
  EXPECT_EQ(folder.read("file"), std::to_string(asked));
  EXPECT_THAT(folder.names(), ElementsAre("file"));
}

TEST_F(UpdateFileThroughLinksTest, WhatTheEditThrowsLeavesTheFile) {
  folder.write("file", "old");
  EXPECT_THROW(updateFileThroughLinks(
                   folder / "file",
                   [](const FileContent&) -> FileContent { throw std::runtime_error("no"); }),
               std::runtime_error);
  EXPECT_EQ(folder.read("file"), "old");
  EXPECT_THAT(folder.names(), ElementsAre("file"));
}

TEST_F(UpdateFileThroughLinksTest, AFolderInItsPlaceStays) {
  folder.write("file/inside", "precious");
  expectError("file", EISDIR);
  EXPECT_EQ(folder.read("file/inside"), "precious");
}

TEST_F(UpdateFileThroughLinksTest, AFullDiskLeavesTheOldFile) {
  folder.write("file", "old");
  {
    const DiskFull full;
    expectError("file", EFBIG);
    expectError("new file", EFBIG);
  }
  EXPECT_EQ(folder.read("file"), "old");
  EXPECT_THAT(folder.names(), ElementsAre("file"));
}

TEST_F(UpdateFileThroughLinksTest, AFolderThatMayNotBeWrittenToIsAnError) {
  folder.write("file", "old");
  fs::permissions(folder.path(), fs::perms(0555));
  {
    const UnprivilegedUser user;
    expectError("file", EACCES);
    EXPECT_THROW(
        updateFileThroughLinks(folder / "file", [](const FileContent&) { return FileContent(); }),
        std::system_error);
  }
  fs::permissions(folder.path(), fs::perms(0755));
  EXPECT_EQ(folder.read("file"), "old");
}

TEST_F(UpdateFileThroughLinksTest, AFileThatMayNotBeReadIsAnError) {
  folder.write("file", "old");
  fs::permissions(folder / "file", fs::perms(0));
  fs::permissions(folder.path(), fs::perms(0777));
  {
    const UnprivilegedUser user;
    expectError("file", EACCES);
  }
  fs::permissions(folder / "file", fs::perms(0600));
  EXPECT_EQ(folder.read("file"), "old");
}

}  // namespace
}  // namespace nodo
