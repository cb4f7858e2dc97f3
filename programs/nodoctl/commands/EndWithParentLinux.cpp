#include <programs/nodoctl/commands/CommandProcess.h>

#include <csignal>

#include <sys/prctl.h>
#include <unistd.h>

namespace nodo::nodoctl {

EndWithParent::EndWithParent() : parent_(::getpid()) {}

EndWithParent::~EndWithParent() = default;

void EndWithParent::inChild() const noexcept {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  // The parent may have ended before the kernel knew what to do about it.
  if (::getppid() != parent_) {
    ::_exit(128 + SIGKILL);
  }
}

void EndWithParent::inParent(pid_t /*child*/) {}

}  // namespace nodo::nodoctl
