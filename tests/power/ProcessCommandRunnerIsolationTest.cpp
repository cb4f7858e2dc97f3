#include <NODOCore/base/Files.h>
#include <NODOCore/power/CommandRunning.h>
#include <testing/OpenDescriptors.h>
#include <testing/SignalsOfTheForeground.h>
#include <testing/TemporaryFolder.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

namespace nodo {
namespace {

using test::FewDescriptors;
using test::openDescriptors;
using test::TemporaryFolder;
using ::testing::Each;

CommandOutput shell(const std::string& script) {
  return ProcessCommandRunner().run("/bin/sh", {"-c", script});
}

// The descriptors that a child has, as it lists them; the last one is that of the listing.
std::string descriptorsOfAChild() {
  return ProcessCommandRunner().run("/bin/ls", {"/dev/fd"}).standardOutput;
}

void expectNoChildren() {
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

class SignalAction {
 public:
  SignalAction(int signal, void (*handler)(int)) : signal_(signal) {
    struct sigaction action {};

    action.sa_handler = handler;  // without SA_RESTART: every blocking call is interrupted
    ::sigaction(signal, &action, &before_);
  }

  SignalAction(const SignalAction&) = delete;
  SignalAction& operator=(const SignalAction&) = delete;

  ~SignalAction() { ::sigaction(signal_, &before_, nullptr); }

 private:
  int signal_;

  struct sigaction before_ {};
};

TEST(ProcessCommandRunnerIsolationTest, AnInheritableDescriptorStaysOutOfTheChild) {
  const FileDescriptor inheritable(::open("/dev/null", O_RDONLY));  // no O_CLOEXEC
  ASSERT_TRUE(inheritable);
  EXPECT_EQ(descriptorsOfAChild(), "0\n1\n2\n3\n");
}

TEST(ProcessCommandRunnerIsolationTest, ChildrenOfOtherThreadsGetNoEndOfAPipe) {
  constexpr int threadCount = 8;
  constexpr int runs = 25;
  const std::string expected = descriptorsOfAChild();
  std::array<std::vector<std::string>, threadCount> seen;
  std::vector<std::thread> threads;
  for (auto& lists : seen) {
    threads.emplace_back([&lists] {
      for (int run = 0; run < runs; ++run) {
        lists.push_back(descriptorsOfAChild());
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  for (const auto& lists : seen) {
    ASSERT_EQ(lists.size(), static_cast<std::size_t>(runs));
    EXPECT_THAT(lists, Each(expected));
  }
}

TEST(ProcessCommandRunnerIsolationTest, EachThreadGetsTheOutputOfItsOwnChild) {
  constexpr int threadCount = 8;
  std::array<int, threadCount> wrong{};
  std::vector<std::thread> threads;
  for (int number = 0; number < threadCount; ++number) {
    threads.emplace_back([number, &wrong] {
      for (int run = 0; run < 25; ++run) {
        const std::string text = std::to_string(number) + "-" + std::to_string(run);
        const CommandOutput output =
            shell("echo " + text + "; echo " + text + " >&2; exit " + std::to_string(number));
        const bool right = output.standardOutput == text + "\n" &&
                           output.standardError == text + "\n" && output.exitCode == number;
        wrong[static_cast<std::size_t>(number)] += right ? 0 : 1;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_THAT(wrong, Each(0));
  expectNoChildren();
}

TEST(ProcessCommandRunnerIsolationTest, AThousandRunsLeaveNoDescriptorAndNoZombie) {
  const TemporaryFolder folder;
  const std::vector<int> before = openDescriptors();
  int failures = 0;
  for (int run = 0; run < 1000; ++run) {
    if (run % 3 == 0) {
      try {
        ProcessCommandRunner().run(folder / "none", {});
      } catch (const std::system_error&) {
        ++failures;
      }
    } else {
      ASSERT_EQ(ProcessCommandRunner().run("/bin/sh", {"-c", "exit 1"}).exitCode, 1);
    }
  }
  EXPECT_EQ(failures, 334);
  EXPECT_EQ(openDescriptors(), before);
  expectNoChildren();
}

TEST(ProcessCommandRunnerIsolationTest, RunningOutOfDescriptorsIsAnErrorThatLeavesNone) {
  const std::vector<int> before = openDescriptors();
  for (const int count : {0, 1, 2, 3}) {
    const FewDescriptors few(count);
    try {
      ProcessCommandRunner().run("/bin/sh", {"-c", "exit 0"});
      ADD_FAILURE() << count << " descriptors make no two pipes";
    } catch (const std::system_error& error) {
      EXPECT_EQ(error.code(), std::error_code(EMFILE, std::generic_category()));
    }
    EXPECT_EQ(openDescriptors(), before);
  }
  expectNoChildren();
}

TEST(ProcessCommandRunnerIsolationTest, FourDescriptorsAreEnough) {
  const FewDescriptors few(4);
  EXPECT_EQ(shell("echo fine").standardOutput, "fine\n");
}

TEST(ProcessCommandRunnerIsolationTest, ABlockedSignalIsNotBlockedInTheChild) {
  const test::SignalsOfTheForeground signalsOfTheForeground;
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  ASSERT_EQ(::pthread_sigmask(SIG_BLOCK, &all, &before), 0);
  const CommandOutput output = shell("kill -TERM $$; echo survived");
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  EXPECT_EQ(output.exitCode, SIGTERM);
  EXPECT_EQ(output.standardOutput, "");
}

TEST(ProcessCommandRunnerIsolationTest, AnIgnoredBrokenPipeIsNotIgnoredInTheChild) {
  const SignalAction ignoring(SIGPIPE, SIG_IGN);
  const CommandOutput output = shell("kill -PIPE $$; echo survived");
  EXPECT_EQ(output.exitCode, SIGPIPE);
  EXPECT_EQ(output.standardOutput, "");
}

TEST(ProcessCommandRunnerIsolationTest, AHandledSignalIsNotHandledInTheChild) {
  const SignalAction handling(SIGUSR1, [](int) {});
  EXPECT_EQ(shell("kill -USR1 $$; echo survived").exitCode, SIGUSR1);
}

// What the signal handler below works on: it makes the file at its fifth call.
volatile std::sig_atomic_t interruptions = 0;
std::array<char, 256> fileToMake{};

void countInterruption(int) {
  const int before = errno;
  interruptions = interruptions + 1;
  if (interruptions == 5) {
    ::close(::open(fileToMake.data(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  }
  errno = before;
}

class InterruptedRunTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::strncpy(fileToMake.data(), path.c_str(), fileToMake.size() - 1);
    interruptions = 0;
    const itimerval everyMillisecond{{0, 1000}, {0, 1000}};
    ::setitimer(ITIMER_REAL, &everyMillisecond, nullptr);
  }

  void TearDown() override {
    const itimerval never{};
    ::setitimer(ITIMER_REAL, &never, nullptr);
  }

  // Lasts until this process was interrupted five times.
  std::string waiting() const { return "until [ -e '" + path + "' ]; do :; done; "; }

  TemporaryFolder folder;
  std::string path = folder / "go";
  SignalAction counting{SIGALRM, countInterruption};
};

TEST_F(InterruptedRunTest, ReadingIsNotDisturbedBySignals) {
  const CommandOutput output = shell("echo a; " + waiting() + "echo b; echo c >&2; exit 3");
  EXPECT_EQ(output.standardOutput, "a\nb\n");
  EXPECT_EQ(output.standardError, "c\n");
  EXPECT_EQ(output.exitCode, 3);
  EXPECT_GE(interruptions, 5);
}

TEST_F(InterruptedRunTest, WaitingIsNotDisturbedBySignals) {
  EXPECT_EQ(shell("exec >&- 2>&-; " + waiting() + "exit 9").exitCode, 9);
  EXPECT_GE(interruptions, 5);
  expectNoChildren();
}

// A daemon may be started without any of the standard descriptors, and then pipes get their
// numbers.
TEST(ProcessCommandRunnerIsolationTest, ItWorksInAProcessWithoutStandardDescriptors) {
  for (int closed = 1; closed < 8; ++closed) {
    const pid_t pid = ::fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      for (int descriptor = 0; descriptor < 3; ++descriptor) {
        if ((closed & (1 << descriptor)) != 0) {
          ::close(descriptor);
        }
      }
      const CommandOutput output = shell("echo out; echo err >&2; exit 6");
      ::_exit(output.standardOutput == "out\n" && output.standardError == "err\n" &&
                      output.exitCode == 6
                  ? 0
                  : 1);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(pid, &status, 0), pid);
    EXPECT_EQ(status, 0) << "closed: " << closed;
  }
}

}  // namespace
}  // namespace nodo
