#include <programs/nodoctl/commands/CommandProcess.h>

#include <cerrno>

#include <sys/syscall.h>
#include <unistd.h>

namespace nodo::nodoctl {

FileDescriptor openEndOfProcess(pid_t pid) {
  // Not every C library that is built with knows a function for this call.
  FileDescriptor end(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
  if (!end && (errno == EINVAL || errno == ENOENT)) {
    errno = ESRCH;  // a thread of another process has that number
  }
  return end;
}

}  // namespace nodo::nodoctl
