#include <NODOCore/base/Files.h>
#include <programs/nodoctl/terminal/Terminal.h>

#include <csignal>
#include <functional>
#include <optional>

#include <gtest/gtest.h>

#include <pty.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace nodo::nodoctl {
namespace {

constexpr Seconds longTime(30);

// Has this process get `number` as from a sender that it cannot see. Linux lets a process make up
// who signals to itself.
void signalFromOutOfSight(int number) {
  siginfo_t info{};
  info.si_signo = number;
  info.si_code = SI_KERNEL;
  ::syscall(SYS_rt_sigqueueinfo, ::getpid(), number, &info);
}

// What a process at the head of a new terminal answers; `terminal` is given the terminal's other
// end.
int onATerminal(const std::function<int()>& process,
                const std::function<void(int terminal)>& person = {}) {
  int other = -1;
  const pid_t child = ::forkpty(&other, nullptr, nullptr, nullptr);
  if (child == 0) {
    ::_exit(process());
  }
  const FileDescriptor terminal(other);
  if (person) {
    char ready = 0;
    EXPECT_EQ(::read(other, &ready, 1), 1);
    person(other);
  }
  int status = 0;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

constexpr int fromTerminal = 10;
constexpr int fromOutOfSight = 11;
constexpr int fromAnother = 12;

int answerTo(const std::optional<CaughtSignal>& caught, int number) {
  if (!caught || caught->number != number) {
    return 1;
  }
  if (!caught->sender) {
    return fromTerminal;
  }
  return *caught->sender == 0 ? fromOutOfSight : fromAnother;
}

int answerToOneFromOutOfSight(int number) {
  const auto signals = catchSignals({number});
  signalFromOutOfSight(number);
  return answerTo(signals->next(longTime), number);
}

TEST(SignalSenderTest, AKeyIsTheTerminals) {
  const auto wait = [] {
    const auto signals = catchSignals({SIGINT});
    const bool isReady = ::write(STDOUT_FILENO, "r", 1) == 1;
    return isReady ? answerTo(signals->next(longTime), SIGINT) : 2;
  };
  const auto press = [](int terminal) { EXPECT_EQ(::write(terminal, "\x03", 1), 1); };
  EXPECT_EQ(onATerminal(wait, press), fromTerminal);
}

TEST(SignalSenderTest, WhatATerminalNeverSendsIsFromOutOfSight) {
  for (const int number : {SIGTERM, SIGUSR1, SIGUSR2}) {
    EXPECT_EQ(onATerminal([number] { return answerToOneFromOutOfSight(number); }), fromOutOfSight)
        << number;
  }
}

TEST(SignalSenderTest, InTheBackgroundNoKeyIsMeant) {
  const auto inBackground = [] {
    const pid_t foreground = ::fork();
    if (foreground == 0) {
      ::pause();
    }
    ::setpgid(foreground, foreground);
    ::signal(SIGTTOU, SIG_IGN);
    const bool isMoved = ::tcsetpgrp(STDIN_FILENO, foreground) == 0;
    const int answer = isMoved ? answerToOneFromOutOfSight(SIGINT) : 2;
    ::kill(foreground, SIGKILL);
    ::waitpid(foreground, nullptr, 0);
    return answer;
  };
  EXPECT_EQ(onATerminal(inBackground), fromOutOfSight);
}

TEST(SignalSenderTest, WithoutATerminalNoneIsMeant) {
  const auto withoutTerminal = [] {
    const pid_t child = ::fork();
    if (child == 0) {
      ::setsid();
      ::_exit(answerToOneFromOutOfSight(SIGHUP));
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WEXITSTATUS(status);
  };
  EXPECT_EQ(onATerminal(withoutTerminal), fromOutOfSight);
  EXPECT_EQ(onATerminal([] { return answerToOneFromOutOfSight(SIGHUP); }), fromTerminal);
}

}  // namespace
}  // namespace nodo::nodoctl
