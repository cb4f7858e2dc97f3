#include <NODOCore/base/Files.h>
#include <programs/nodoctl/commands/CommandProcess.h>

#include <array>
#include <cerrno>
#include <csignal>

#include <gtest/gtest.h>

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace nodo::nodoctl {
namespace {

// Starts a child that does nothing for ever, and tells `ready` once it is looked after.
[[noreturn]] void beParent(int ready) {
  EndWithParent endWithParent;
  const pid_t child = ::fork();
  if (child == 0) {
    endWithParent.inChild();
    for (;;) {
      ::pause();
    }
  }
  endWithParent.inParent(child);
  const char byte = 0;
  [[maybe_unused]] const auto written = ::write(ready, &byte, 1);
  for (;;) {
    ::pause();
  }
}

TEST(EndWithParentTest, AChildEndsWhenItsParentIsKilled) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe(ends.data()), 0);
  const FileDescriptor output(ends[0]);
  FileDescriptor input(ends[1]);
  const pid_t parent = ::fork();
  if (parent == 0) {
    beParent(input.get());
  }
  input.reset();
  char byte = 1;
  ASSERT_EQ(::read(output.get(), &byte, 1), 1);
  ::kill(parent, SIGKILL);
  ::waitpid(parent, nullptr, 0);
  // The pipe's end shows once nobody has its other end: neither the child nor who looked after it.
  pollfd end{.fd = output.get(), .events = POLLIN, .revents = 0};
  constexpr int patience = 60'000;
  ASSERT_EQ(::poll(&end, 1, patience), 1);
  EXPECT_EQ(::read(output.get(), &byte, 1), 0);
}

TEST(EndWithParentTest, AChildThatEndsByItselfLeavesNothingBehind) {
  pid_t child = -1;
  {
    EndWithParent endWithParent;
    child = ::fork();
    if (child == 0) {
      endWithParent.inChild();
      ::_exit(3);
    }
    endWithParent.inParent(child);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), 3);
  }
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

}  // namespace
}  // namespace nodo::nodoctl
