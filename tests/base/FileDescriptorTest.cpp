#include <NODOCore/base/Files.h>
#include <testing/TemporaryFolder.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <future>
#include <string>
#include <system_error>
#include <utility>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

namespace nodo {
namespace {

FileDescriptor openNull() {
  return FileDescriptor(::open("/dev/null", O_RDWR | O_CLOEXEC));
}

bool isOpen(int descriptor) {
  return ::fcntl(descriptor, F_GETFD) != -1;
}

TEST(FileDescriptorTest, ItIsClosedAtTheEndOfItsLife) {
  int number = -1;
  {
    const FileDescriptor descriptor = openNull();
    number = descriptor.get();
    EXPECT_TRUE(descriptor);
    EXPECT_TRUE(isOpen(number));
  }
  EXPECT_FALSE(isOpen(number));
}

TEST(FileDescriptorTest, MovingHandsOverTheOneOwnership) {
  FileDescriptor first = openNull();
  const int number = first.get();
  FileDescriptor second(std::move(first));
  EXPECT_EQ(second.get(), number);
  FileDescriptor third = openNull();
  const int replaced = third.get();
  third = std::move(second);
  EXPECT_EQ(third.get(), number);
  EXPECT_FALSE(isOpen(replaced));
  EXPECT_TRUE(isOpen(number));
}

TEST(FileDescriptorTest, AReleasedOneStaysOpen) {
  FileDescriptor descriptor = openNull();
  const int number = descriptor.release();
  EXPECT_FALSE(descriptor);
  EXPECT_TRUE(isOpen(number));
  ::close(number);
}

TEST(FileDescriptorTest, ResettingClosesNowAndOnlyOnce) {
  FileDescriptor descriptor = openNull();
  const int number = descriptor.get();
  descriptor.reset();
  EXPECT_FALSE(isOpen(number));
  EXPECT_FALSE(descriptor);
  descriptor.reset();
  EXPECT_EQ(descriptor.get(), -1);
}

TEST(FileDescriptorTest, ItReadsToTheEnd) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe(ends.data()), 0);
  const FileDescriptor reading(ends[0]);
  FileDescriptor writing(ends[1]);
  ASSERT_EQ(::write(writing.get(), "a\0b", 3), 3);
  writing.reset();
  EXPECT_EQ(readToEnd(reading, "pipe"), std::string("a\0b", 3));
  EXPECT_EQ(readToEnd(reading, "pipe"), "");
}

TEST(FileDescriptorTest, AFailedReadNamesWhatWasRead) {
  try {
    readToEnd(FileDescriptor(), "the battery");
    FAIL() << "nothing to read from";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code(), std::error_code(EBADF, std::generic_category()));
    EXPECT_TRUE(std::string(error.what()).starts_with("Unable to read the battery"))
        << error.what();
  }
}

TEST(FileDescriptorTest, OneAtATimeHasAFileLocked) {
  const test::TemporaryFolder folder;
  const auto path = folder / "lock";
  EXPECT_FALSE(openLocked(path, 0));
  EXPECT_EQ(errno, ENOENT);
  FileDescriptor first = openLocked(path, O_CREAT);
  EXPECT_TRUE(first);
  EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms(0600));
  EXPECT_FALSE(openLocked(path, O_CREAT));
  EXPECT_EQ(errno, EWOULDBLOCK);
  first.reset();
  EXPECT_TRUE(openLocked(path, 0));
}

TEST(FileDescriptorTest, WhoeverIsPatientHasItLockedAfterTheOther) {
  const test::TemporaryFolder folder;
  const auto path = folder / "lock";
  FileDescriptor first = openLocked(path, O_CREAT);
  auto second =
      std::async(std::launch::async, [&] { return openLocked(path, 0, std::chrono::minutes(1)); });
  first.reset();
  EXPECT_TRUE(second.get());
}

TEST(FileDescriptorTest, ALinkInItsPlaceIsNotFollowed) {
  const test::TemporaryFolder folder;
  std::filesystem::create_symlink(folder / "elsewhere", folder / "link");
  EXPECT_FALSE(openLocked(folder / "link", O_CREAT));
  EXPECT_EQ(errno, ELOOP);
  EXPECT_FALSE(std::filesystem::exists(folder / "elsewhere"));
}

}  // namespace
}  // namespace nodo
