#pragma once

#include <csignal>

#include <sys/resource.h>

namespace nodo::test {

/// While it lives, this process cannot write to any file: as on a full disk, but with EFBIG.
class DiskFull {
 public:
  DiskFull();
  DiskFull(const DiskFull&) = delete;
  DiskFull& operator=(const DiskFull&) = delete;
  ~DiskFull();

 private:
  rlimit oldLimit_{};

  struct sigaction oldAction_ {};
};

}  // namespace nodo::test
