#include <programs/nodoctl/commands/CommandProcess.h>

#include <cerrno>

#include <fcntl.h>
#include <sys/event.h>
#include <sys/time.h>
#include <sys/types.h>

namespace nodo::nodoctl {

// The queue itself can be read as soon as it holds the one event that it was asked for.
FileDescriptor openEndOfProcess(pid_t pid) {
  FileDescriptor queue(::kqueue());

  struct kevent end {};

  EV_SET(&end, static_cast<uintptr_t>(pid), EVFILT_PROC, EV_ADD, NOTE_EXIT, 0, nullptr);
  if (queue && (::fcntl(queue.get(), F_SETFD, FD_CLOEXEC) != 0 ||
                ::kevent(queue.get(), &end, 1, nullptr, 0, nullptr) != 0)) {
    const int error = errno;
    queue.reset();
    errno = error;
  }
  return queue;
}

}  // namespace nodo::nodoctl
