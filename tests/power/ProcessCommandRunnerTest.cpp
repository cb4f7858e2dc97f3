#include <NODOCore/base/Files.h>
#include <NODOCore/power/CommandRunning.h>
#include <testing/EnvironmentVariable.h>
#include <testing/SignalsOfTheForeground.h>
#include <testing/TemporaryFolder.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace nodo {
namespace {

using test::EnvironmentVariable;
using test::TemporaryFolder;
using ::testing::HasSubstr;

CommandOutput shell(const std::string& script) {
  return ProcessCommandRunner().run("/bin/sh", {"-c", script});
}

class ProcessCommandRunnerTest : public ::testing::Test {
 protected:
  void expectLaunchError(const std::filesystem::path& executable, int code) {
    try {
      ProcessCommandRunner().run(executable, {"x"});
      FAIL() << executable << " was run";
    } catch (const std::system_error& error) {
      EXPECT_EQ(error.code(), std::error_code(code, std::generic_category())) << error.what();
      EXPECT_THAT(error.what(), HasSubstr("Unable to run " + executable.string()));
    }
  }

  TemporaryFolder folder;
};

TEST_F(ProcessCommandRunnerTest, AFinishedRunIsReportedWhole) {
  EXPECT_EQ(shell("echo out; printf e >&2; exit 3"),
            (CommandOutput{.executable = "/bin/sh",
                           .arguments = {"-c", "echo out; printf e >&2; exit 3"},
                           .standardOutput = "out\n",
                           .standardError = "e",
                           .exitCode = 3}));
}

TEST_F(ProcessCommandRunnerTest, EveryExitStatusIsAResult) {
  for (const std::int32_t status : {0, 1, 2, 126, 127, 128, 137, 254, 255}) {
    EXPECT_EQ(shell("exit " + std::to_string(status)).exitCode, status);
  }
}

TEST_F(ProcessCommandRunnerTest, AnEndBySignalIsReportedByItsNumber) {
  const test::SignalsOfTheForeground signalsOfTheForeground;
  for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGKILL, SIGPIPE, SIGTERM}) {
    const CommandOutput output =
        shell("ulimit -c 0; echo before; kill -" + std::to_string(signal) + " $$; echo after");
    EXPECT_EQ(output.exitCode, signal);
    EXPECT_EQ(output.standardOutput, "before\n");
  }
}

TEST_F(ProcessCommandRunnerTest, WhatCannotBeStartedIsAnErrorThatNamesIt) {
  folder.write("file", "#!/bin/sh\nexit 0\n");
  expectLaunchError(folder / "none", ENOENT);
  expectLaunchError(folder / "file" / "none", ENOTDIR);
  expectLaunchError(folder / "file", EACCES);
  expectLaunchError(folder.path(), EACCES);
  expectLaunchError("", ENOENT);
}

TEST_F(ProcessCommandRunnerTest, AScriptWithoutAnInterpreterIsNotHandedToAShell) {
  folder.write("script", "exit 0\n");
  std::filesystem::permissions(folder / "script", std::filesystem::perms(0755));
  expectLaunchError(folder / "script", ENOEXEC);
}

TEST_F(ProcessCommandRunnerTest, ANameWithoutAPathIsNotSearchedFor) {
  expectLaunchError("sh", ENOENT);
}

TEST_F(ProcessCommandRunnerTest, ArgumentsAreNotInterpreted) {
  const std::vector<std::string> arguments = {"a b", "*",       "$HOME", "",    "\"",
                                              "'",   ";exit 9", "`id`",  "\\n", "\u00E9\U0001F600",
                                              "-x",  "a\nb\t"};
  std::vector<std::string> all = {"-c", "for each; do printf '[%s]' \"$each\"; done", "sh"};
  std::string expected;
  for (const std::string& argument : arguments) {
    all.push_back(argument);
    expected += "[" + argument + "]";
  }
  EXPECT_EQ(ProcessCommandRunner().run("/bin/sh", all).standardOutput, expected);
}

TEST_F(ProcessCommandRunnerTest, TheToolsOwnNameIsItsPath) {
  EXPECT_EQ(shell("echo \"$0\"").standardOutput, "/bin/sh\n");
}

TEST_F(ProcessCommandRunnerTest, OutputThatIsNoUTF8IsEmptyAndTheStatusKept) {
  const CommandOutput output = shell("printf 'a\\377b'; echo fine >&2; exit 5");
  EXPECT_EQ(output.standardOutput, "");
  EXPECT_EQ(output.standardError, "fine\n");
  EXPECT_EQ(output.exitCode, 5);
  const CommandOutput other = shell("echo fine; printf '\\303' >&2");
  EXPECT_EQ(other.standardOutput, "fine\n");
  EXPECT_EQ(other.standardError, "");
}

TEST_F(ProcessCommandRunnerTest, OutputIsNotTrimmed) {
  const CommandOutput output = shell("printf '\\n\\n out \\r\\n\\n'; printf ' err\\n\\n' >&2");
  EXPECT_EQ(output.standardOutput, "\n\n out \r\n\n");
  EXPECT_EQ(output.standardError, " err\n\n");
}

TEST_F(ProcessCommandRunnerTest, AZeroByteInTheOutputIsKept) {
  EXPECT_EQ(shell("printf 'a\\0b'").standardOutput, std::string("a\0b", 3));
}

TEST_F(ProcessCommandRunnerTest, AMegabyteOfOutputComesWhole) {
  const CommandOutput output = shell("head -c 1048576 /dev/zero | tr '\\0' x; printf y >&2");
  EXPECT_EQ(output.standardOutput, std::string(1048576, 'x'));
  EXPECT_EQ(output.standardError, "y");
}

TEST_F(ProcessCommandRunnerTest, NeitherOutputWaitsForTheOtherOne) {
  const CommandOutput output =
      shell("head -c 1048576 /dev/zero | tr '\\0' x >&2; printf y; exec >&-; printf z >&2");
  EXPECT_EQ(output.standardError, std::string(1048576, 'x') + "z");
  EXPECT_EQ(output.standardOutput, "y");
}

TEST_F(ProcessCommandRunnerTest, TheEnvironmentIsInherited) {
  const EnvironmentVariable variable("NODO_TEST_VALUE", "a b\n=c");
  EXPECT_EQ(shell("printf %s \"$NODO_TEST_VALUE\"").standardOutput, "a b\n=c");
}

TEST_F(ProcessCommandRunnerTest, StandardInputIsInherited) {
  folder.write("input", "from the file\n");
  const FileDescriptor before(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3));
  const FileDescriptor input(::open((folder / "input").c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_GE(::dup2(input.get(), STDIN_FILENO), 0);
  const CommandOutput output = ProcessCommandRunner().run("/bin/cat", {});
  if (before) {
    ::dup2(before.get(), STDIN_FILENO);
  } else {
    ::close(STDIN_FILENO);
  }
  EXPECT_EQ(output.standardOutput, "from the file\n");
}

TEST_F(ProcessCommandRunnerTest, AToolThatClosesItsOutputsIsStillWaitedFor) {
  EXPECT_EQ(
      shell("exec >&- 2>&-; i=0; while [ $i -lt 2000 ]; do i=$((i+1)); done; exit 7").exitCode, 7);
}

TEST_F(ProcessCommandRunnerTest, OutputOfAChildThatOutlivesTheToolIsWaitedFor) {
  const CommandOutput output =
      shell("(i=0; while [ $i -lt 2000 ]; do i=$((i+1)); done; echo late) & exit 4");
  EXPECT_EQ(output.standardOutput, "late\n");
  EXPECT_EQ(output.exitCode, 4);
}

// ---- with a limit

class LimitedCommandRunnerTest : public ProcessCommandRunnerTest {
 protected:
  /// Runs a script that has no end within the limit.
  void expectNoEnd(const std::string& script) {
    try {
      ProcessCommandRunner(Seconds(0.4)).run("/bin/sh", {"-c", script});
      FAIL() << "an end: " << script;
    } catch (const std::system_error& error) {
      EXPECT_EQ(error.code(), std::error_code(ETIMEDOUT, std::generic_category()));
      EXPECT_THAT(error.what(), HasSubstr("/bin/sh has no end"));
    }
  }
};

TEST_F(LimitedCommandRunnerTest, AToolThatEndsInTimeIsReportedWhole) {
  const CommandOutput output =
      ProcessCommandRunner(Seconds(60))
          .run("/bin/sh", {"-c", "head -c 100000 /dev/zero | tr '\\0' x; printf e >&2; exit 3"});
  EXPECT_EQ(output.standardOutput, std::string(100000, 'x'));
  EXPECT_EQ(output.standardError, "e");
  EXPECT_EQ(output.exitCode, 3);
}

TEST_F(LimitedCommandRunnerTest, AToolWithoutAnEndIsKilledWithItsChildren) {
  const std::string fifo = folder / "held";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  const FileDescriptor held(::open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  expectNoEnd("exec 3>'" + fifo + "'; sleep 1000 & sleep 1000");
  pollfd end{held.get(), POLLIN, 0};
  EXPECT_EQ(::poll(&end, 1, 20000), 1);
  EXPECT_EQ(end.revents, POLLHUP) << "somebody still holds it";
}

TEST_F(LimitedCommandRunnerTest, AToolThatIgnoresSignalsOrClosesItsOutputsIsKilledToo) {
  expectNoEnd("trap '' TERM INT HUP; sleep 1000; sleep 1000");
  expectNoEnd("exec >&- 2>&-; sleep 1000");
  expectNoEnd("while :; do echo again; done");
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD) << "all were waited for";
}

TEST_F(LimitedCommandRunnerTest, AnOutlivingChildOfAnotherGroupThatHoldsThePipesIsNotWaitedFor) {
  const std::string number = folder / "pid";
  expectNoEnd("set -m; sleep 1000 & echo $! >'" + number + "'; exit 0");
  const pid_t outliving = std::stoi(readFile(number).value_or("0"));
  ASSERT_GT(outliving, 1);
  EXPECT_EQ(::kill(outliving, SIGKILL), 0);
}

TEST_F(LimitedCommandRunnerTest, WithoutALimitAToolStaysInTheGroupOfItsParent) {
  const std::string group = std::to_string(::getpgrp()) + "\n";
  EXPECT_EQ(shell("ps -o pgid= -p $$ | tr -d ' '").standardOutput, group);
  EXPECT_NE(ProcessCommandRunner(Seconds(60))
                .run("/bin/sh", {"-c", "ps -o pgid= -p $$ | tr -d ' '"})
                .standardOutput,
            group);
}

}  // namespace
}  // namespace nodo
