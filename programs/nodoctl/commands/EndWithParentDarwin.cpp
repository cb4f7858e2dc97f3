#include <NODOCore/base/System.h>
#include <programs/nodoctl/commands/CommandProcess.h>

#include <cerrno>
#include <csignal>
#include <utility>

#include <sys/wait.h>
#include <unistd.h>

namespace nodo::nodoctl {
namespace {

// The life of the guard: a byte says that the child has ended by itself, the pipe's end without one
// that this process has ended first.
[[noreturn]] void guard(int pipe, pid_t child) noexcept {
  ::setsid();  // no key on the terminal is for the guard
  char byte = 0;
  ssize_t got = -1;
  do {
    got = ::read(pipe, &byte, 1);
  } while (got < 0 && errno == EINTR);
  if (got == 0) {
    ::kill(child, SIGKILL);
  }
  ::_exit(0);
}

}  // namespace

EndWithParent::EndWithParent() : parent_(::getpid()) {}

EndWithParent::~EndWithParent() {
  if (guard_ > 0) {
    const char byte = 0;
    [[maybe_unused]] const auto written = ::write(guarded_.get(), &byte, 1);
    ::waitpid(guard_, nullptr, 0);
  }
}

void EndWithParent::inChild() const noexcept {
  if (::getppid() != parent_) {
    ::_exit(128 + SIGKILL);
  }
}

void EndWithParent::inParent(pid_t child) {
  Pipe pipe = makePrivatePipe();
  guarded_ = std::move(pipe.writeEnd);
  // The guard goes on with all signals blocked, as this process's handlers are not for it.
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  ::sigprocmask(SIG_SETMASK, &all, &before);
  guard_ = ::fork();
  const int error = errno;
  if (guard_ == 0) {
    ::close(guarded_.get());
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
      ::close(stream);  // whoever reads them is not to wait for the guard
    }
    guard(pipe.readEnd.get(), child);
  }
  ::sigprocmask(SIG_SETMASK, &before, nullptr);
  if (guard_ < 0) {
    errno = error;
    throwErrno("Unable to start", "a process");
  }
}

}  // namespace nodo::nodoctl
