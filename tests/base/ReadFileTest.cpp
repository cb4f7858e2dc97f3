#include <NODOCore/base/Files.h>
#include <testing/TemporaryFolder.h>
#include <testing/UnprivilegedUser.h>

#include <cerrno>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace nodo {
namespace {

using test::TemporaryFolder;
using test::UnprivilegedUser;
using ::testing::HasSubstr;

class ReadFileTest : public ::testing::Test {
 protected:
  // A file of that size without content on the disk.
  void makeSparseFile(const std::filesystem::path& path, off_t size) {
    const FileDescriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    ASSERT_EQ(::ftruncate(file.get(), size), 0);
  }

  void expectError(const std::filesystem::path& path, int code) {
    try {
      readFile(path);
      FAIL() << path << " was read";
    } catch (const std::system_error& error) {
      EXPECT_EQ(error.code(), std::error_code(code, std::generic_category())) << error.what();
      EXPECT_THAT(error.what(), HasSubstr("Unable to read " + path.string()));
    }
  }

  TemporaryFolder folder;
  static constexpr off_t largest = off_t{64} * 1024 * 1024;
};

TEST_F(ReadFileTest, TheContentComesWholeAndUnchanged) {
  const std::string content("a\0b\r\n\xFF\n\n", 8);
  folder.write("file", content);
  EXPECT_EQ(readFile(folder / "file"), content);
  folder.write("empty", "");
  EXPECT_EQ(readFile(folder / "empty"), "");
  const std::string large(3 * 16384 + 5, 'x');
  folder.write("large", large);
  EXPECT_EQ(readFile(folder / "large"), large);
}

TEST_F(ReadFileTest, AFileThatIsNotThereIsNothing) {
  EXPECT_EQ(readFile(folder / "none"), std::nullopt);
  EXPECT_EQ(readFile(folder / "no folder" / "none"), std::nullopt);
  folder.write("file", "x");
  EXPECT_EQ(readFile(folder / "file" / "below a file"), std::nullopt);
  std::filesystem::create_symlink("nowhere", folder / "dangling");
  EXPECT_EQ(readFile(folder / "dangling"), std::nullopt);
}

TEST_F(ReadFileTest, ASymbolicLinkIsFollowed) {
  folder.write("file", "content");
  std::filesystem::create_symlink("file", folder / "link");
  EXPECT_EQ(readFile(folder / "link"), "content");
}

TEST_F(ReadFileTest, ANamedPipeWithoutAWriterFailsAtOnce) {
  ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
  expectError(folder / "pipe", EINVAL);
}

TEST_F(ReadFileTest, AFolderAndADeviceAreNoFiles) {
  expectError(folder.path(), EISDIR);
  expectError("/dev/null", EINVAL);
}

TEST_F(ReadFileTest, ACircleOfLinksIsAnError) {
  std::filesystem::create_symlink("b", folder / "a");
  std::filesystem::create_symlink("a", folder / "b");
  expectError(folder / "a", ELOOP);
}

TEST_F(ReadFileTest, TheLargestFileIsReadAndAByteMoreIsNot) {
  makeSparseFile(folder / "large", largest);
  EXPECT_EQ(readFile(folder / "large")->size(), static_cast<std::size_t>(largest));
  makeSparseFile(folder / "too large", largest + 1);
  expectError(folder / "too large", EFBIG);
}

TEST_F(ReadFileTest, AFileThatMayNotBeReadIsAnError) {
  folder.write("file", "secret");
  std::filesystem::permissions(folder.path(), std::filesystem::perms(0755));
  std::filesystem::permissions(folder / "file", std::filesystem::perms(0));
  const UnprivilegedUser user;
  expectError(folder / "file", EACCES);
}

}  // namespace
}  // namespace nodo
