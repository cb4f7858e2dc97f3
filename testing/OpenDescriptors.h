#pragma once

#include <vector>

#include <sys/resource.h>

namespace nodo::test {

/// The open file descriptors of this process, in order.
std::vector<int> openDescriptors();

/// While it lives, this process can open no more than `count` further file descriptors.
class FewDescriptors {
 public:
  explicit FewDescriptors(int count);
  FewDescriptors(const FewDescriptors&) = delete;
  FewDescriptors& operator=(const FewDescriptors&) = delete;
  ~FewDescriptors();

 private:
  rlimit before_{};
};

}  // namespace nodo::test
