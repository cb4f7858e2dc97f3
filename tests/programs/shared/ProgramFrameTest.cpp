#include <NODOCore/base/Files.h>
#include <NODOCore/base/System.h>
#include <programs/shared/ProgramFrame.h>
#include <testing/TemporaryFolder.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <sstream>
#include <string>
#include <system_error>
#include <utility>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace nodo {
namespace {

/// A log to a pipe of which this is the reader.
class LogStreamTest : public ::testing::Test {
 protected:
  LogStreamTest() {
    Pipe pipe = makePrivatePipe();
    reader = std::move(pipe.readEnd);
    writer = std::move(pipe.writeEnd);
    EXPECT_EQ(::fcntl(reader.get(), F_SETFL, O_NONBLOCK), 0);
  }

  void fill() const {
    ASSERT_EQ(::fcntl(writer.get(), F_SETFL, O_NONBLOCK), 0);
    while (::write(writer.get(), "x", 1) == 1) {
    }
    ASSERT_EQ(errno, EAGAIN);
    ASSERT_EQ(::fcntl(writer.get(), F_SETFL, 0), 0);
  }

  /// What is in the pipe, and no longer then.
  std::string read() const {
    std::string all;
    std::array<char, 4096> some{};
    for (ssize_t count = 0; (count = ::read(reader.get(), some.data(), some.size())) > 0;) {
      all.append(some.data(), static_cast<std::size_t>(count));
    }
    return all;
  }

  FileDescriptor reader;
  FileDescriptor writer;
};

TEST_F(LogStreamTest, WhatIsWrittenIsThereAtOnce) {
  LogStream log(writer.get(), "nodod");
  log << "one\n";
  EXPECT_EQ(read(), "one\n");
  log << "two\n" << std::flush;
  EXPECT_EQ(read(), "two\n");
}

TEST_F(LogStreamTest, ALogThatNobodyReadsIsNotWaitedFor) {
  LogStream log(writer.get(), "nodod");
  fill();
  log << "lost\n";
  log << "lost, too\n";
  EXPECT_TRUE(log.good());
  EXPECT_EQ(read().find("lost"), std::string::npos);
  log << "read\n";
  log << "read, too\n";
  EXPECT_EQ(read(), "nodod: lines of this log that could not be written: 2\nread\nread, too\n");
}

TEST_F(LogStreamTest, ALineThatNobodyWouldReadIsCutAndEnds) {
  LogStream log(writer.get(), "nodod");
  std::string umlauts = "x";
  while (umlauts.size() < std::size_t{1024} * 1024) {
    umlauts += "\u00e4";
  }
  log << umlauts + "\n";
  const std::string cut = read();
  EXPECT_EQ(cut.substr(0, LogStream::longestLine - 1),
            umlauts.substr(0, LogStream::longestLine - 1));
  EXPECT_EQ(cut.substr(LogStream::longestLine - 1), "\uFFFD...\n");
}

TEST_F(LogStreamTest, ALogWithoutAReaderIsNoFailure) {
  const auto before = std::signal(SIGPIPE, SIG_IGN);
  LogStream log(writer.get(), "nodod");
  reader.reset();
  log << "lost\n";
  EXPECT_TRUE(log.good());
  std::signal(SIGPIPE, before);
}

TEST_F(LogStreamTest, AFileIsFollowedByItsNameWhenLogsAreTurnedOver) {
  const test::TemporaryFolder folder;
  const std::string path = (folder / "log").string();
  LogStream log(writer.get(), "nodod");
  log << "to the pipe\n";
  log.follow(path);
  log << "one\n";
  std::filesystem::rename(path, folder / "log.0");
  log << "two\n";
  std::filesystem::rename(path, folder / "log.1");
  folder.write("log", "turned over\n");
  log << "three\n";
  EXPECT_EQ(read(), "to the pipe\n");
  EXPECT_EQ(folder.read("log.0"), "one\n");
  EXPECT_EQ(folder.read("log.1"), "two\n");
  EXPECT_EQ(folder.read("log"), "turned over\nthree\n");
}

TEST_F(LogStreamTest, AFileThatCannotBeFollowedLeavesTheLinesWhereTheyWent) {
  const test::TemporaryFolder folder;
  LogStream log(writer.get(), "nodod");
  EXPECT_THROW(log.follow((folder / "no/such/log").string()), std::system_error);
  log << "one\n";
  EXPECT_EQ(read(), "one\n");
  std::filesystem::create_symlink(folder / "elsewhere", folder / "link");
  EXPECT_THROW(log.follow((folder / "link").string()), std::system_error);
  EXPECT_FALSE(std::filesystem::exists(folder / "elsewhere"));

  log.follow((folder / "log").string());
  std::filesystem::rename(folder / "log", folder / "log.0");
  std::filesystem::create_directory(folder / "log");
  log << "two\n";
  EXPECT_EQ(folder.read("log.0"), "two\n");
}

// In a process of its own, which these settings cannot leave.
TEST(PrepareProcessTest, AFileThatMayNotGrowIsAnErrorAndEndsNoProgram) {
  const test::TemporaryFolder folder;
  folder.write("file", "old");
  const pid_t child = ::fork();
  if (child == 0) {
    prepareProcess();
    ::setrlimit(RLIMIT_FSIZE, std::array{rlimit{0, 0}}.data());
    int failure = 0;
    try {
      replaceFile(folder / "file", "new");
    } catch (const std::system_error& error) {
      failure = error.code().value();
    }
    ::_exit(failure);
  }
  int status = -1;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
  EXPECT_EQ(WEXITSTATUS(status), EFBIG);
  EXPECT_EQ(folder.read("file"), "old");
}

TEST(ConsoleTest, OfAnEndlessMessageTheBeginningIsShown) {
  std::ostringstream error;
  const Console console{.program = "nodod", .output = error, .error = error};
  console.complain(std::string(3'000'000, '\x1b'));
  EXPECT_EQ(error.str().size(), std::string("nodod: ...\n").size() +
                                    Console::longestMessage * std::string("\\u{1b}").size());
}

}  // namespace
}  // namespace nodo
