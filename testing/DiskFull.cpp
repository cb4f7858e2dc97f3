#include <testing/DiskFull.h>

namespace nodo::test {

DiskFull::DiskFull() {
  struct sigaction ignore {};

  ignore.sa_handler = SIG_IGN;  // NOLINT(cppcoreguidelines-pro-type-cstyle-cast): the C library's
  ::sigaction(SIGXFSZ, &ignore, &oldAction_);
  ::getrlimit(RLIMIT_FSIZE, &oldLimit_);
  rlimit none = oldLimit_;
  none.rlim_cur = 0;
  ::setrlimit(RLIMIT_FSIZE, &none);
}

DiskFull::~DiskFull() {
  ::setrlimit(RLIMIT_FSIZE, &oldLimit_);
  ::sigaction(SIGXFSZ, &oldAction_, nullptr);
}

}  // namespace nodo::test
