#include <NODOCore/base/Files.h>
#include <testing/TemporaryFolder.h>

#include <array>
#include <csignal>
#include <exception>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace nodo {
namespace {

namespace fs = std::filesystem;
using test::TemporaryFolder;
using ::testing::ElementsAre;
using ::testing::SizeIs;

const std::string temporaryName = ".state.json.nodo-tmp-0123456789abcdef";

// Runs `work` in a child process that exits with 0 unless it throws.
pid_t startProcess(const std::function<void()>& work) {
  const pid_t pid = ::fork();
  if (pid == 0) {
    try {
      work();
    } catch (const std::exception&) {
      ::_exit(1);
    }
    ::_exit(0);
  }
  return pid;
}

int waitFor(pid_t pid) {
  int status = -1;
  EXPECT_EQ(::waitpid(pid, &status, 0), pid);
  return status;
}

void expectOneContentWhole(const std::string& content, std::size_t size) {
  ASSERT_EQ(content.size(), size);
  ASSERT_EQ(content, std::string(size, content.front()));
}

class ReplaceFileRaceTest : public ::testing::Test {
 protected:
  void replaceRepeatedly(char letter) {
    for (int count = 0; count < rounds; ++count) {
      replaceFile(folder / "state.json", std::string(size, letter));
    }
  }

  TemporaryFolder folder;
  static constexpr std::size_t size = 100000;
  static constexpr int rounds = 40;
};

TEST_F(ReplaceFileRaceTest, WhatAKilledProcessLeftIsRemovedByTheNextCall) {
  folder.write("state.json", "old");
  const pid_t writer = startProcess([this] {
    // The file may grow to 4 KiB; writing beyond that kills the process.
    ::setrlimit(RLIMIT_CORE, std::array{rlimit{0, 0}}.data());
    ::setrlimit(RLIMIT_FSIZE, std::array{rlimit{4096, 4096}}.data());
    replaceFile(folder / "state.json", std::string(size, 'x'));
  });
  const int status = waitFor(writer);
  ASSERT_TRUE(WIFSIGNALED(status));
  ASSERT_EQ(WTERMSIG(status), SIGXFSZ);
  EXPECT_EQ(folder.read("state.json"), "old");
  ASSERT_THAT(folder.names(), SizeIs(2)) << "the killed process left nothing to remove";

  replaceFile(folder / "state.json", "new");
  EXPECT_EQ(folder.read("state.json"), "new");
  EXPECT_THAT(folder.names(), ElementsAre("state.json"));
}

TEST_F(ReplaceFileRaceTest, ALivingWritersTemporaryIsLeftAlone) {
  folder.write(temporaryName, "half");
  FileDescriptor writer(::open((folder / temporaryName).c_str(), O_WRONLY | O_CLOEXEC));
  ASSERT_EQ(::flock(writer.get(), LOCK_EX), 0);
  replaceFile(folder / "state.json", "new");
  EXPECT_EQ(folder.read(temporaryName), "half");

  writer.reset();
  replaceFile(folder / "state.json", "newer");
  EXPECT_THAT(folder.names(), ElementsAre("state.json"));
}

TEST_F(ReplaceFileRaceTest, OnlyItsOwnTemporariesAreRemoved) {
  folder.write(".other.json.nodo-tmp-0123456789abcdef", "x");
  folder.write("state.json.nodo-tmp-0123456789abcdef", "x");
  folder.write(".state.json.nodo-tm", "x");
  folder.write(".state.json", "x");
  replaceFile(folder / "state.json", "new");
  EXPECT_THAT(folder.names(), SizeIs(5));
}

TEST_F(ReplaceFileRaceTest, WhatIsNoFileUnderATemporarysNameDoesNoHarm) {
  folder.write("target", "precious");
  fs::create_symlink("target", folder / ".state.json.nodo-tmp-1");
  fs::create_directory(folder / ".state.json.nodo-tmp-2");
  ASSERT_EQ(::mkfifo((folder / ".state.json.nodo-tmp-3").c_str(), 0600), 0);
  replaceFile(folder / "state.json", "new");
  EXPECT_EQ(folder.read("state.json"), "new");
  EXPECT_EQ(folder.read("target"), "precious");
}

TEST_F(ReplaceFileRaceTest, OfTwoProcessesThatReplaceAtOnceOneWinsWhole) {
  folder.write("state.json", std::string(size, 'o'));
  const std::vector<pid_t> writers = {startProcess([this] { replaceRepeatedly('a'); }),
                                      startProcess([this] { replaceRepeatedly('b'); })};
  for (const pid_t writer : writers) {
    int status = -1;
    while (::waitpid(writer, &status, WNOHANG) == 0) {
      const auto content = readFile(folder / "state.json");
      ASSERT_TRUE(content) << "there was a moment without a file";
      ASSERT_NO_FATAL_FAILURE(expectOneContentWhole(*content, size));
    }
    EXPECT_EQ(status, 0);
  }
  EXPECT_NE(folder.read("state.json").front(), 'o');
  EXPECT_THAT(folder.names(), ElementsAre("state.json"));
}

TEST_F(ReplaceFileRaceTest, OfTwoThreadsThatReplaceAtOnceOneWinsWhole) {
  folder.write("state.json", std::string(size, 'o'));
  std::thread first([this] { replaceRepeatedly('a'); });
  std::thread second([this] { replaceRepeatedly('b'); });
  for (int count = 0; count < rounds; ++count) {
    const auto content = readFile(folder / "state.json");
    EXPECT_TRUE(content);
    expectOneContentWhole(content.value_or(""), size);
  }
  first.join();
  second.join();
  EXPECT_NE(folder.read("state.json").front(), 'o');
  EXPECT_THAT(folder.names(), ElementsAre("state.json"));
}

}  // namespace
}  // namespace nodo
