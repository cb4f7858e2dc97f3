#include <testing/OpenDescriptors.h>

#include <algorithm>

#include <fcntl.h>

namespace nodo::test {
namespace {

bool isOpen(int descriptor) {
  return ::fcntl(descriptor, F_GETFD) != -1;
}

}  // namespace

std::vector<int> openDescriptors() {
  // Asked one by one: listing a folder such as /dev/fd would open a descriptor itself.
  constexpr int highest = 4096;
  std::vector<int> open;
  for (int descriptor = 0; descriptor < highest; ++descriptor) {
    if (isOpen(descriptor)) {
      open.push_back(descriptor);
    }
  }
  return open;
}

FewDescriptors::FewDescriptors(int count) {
  // The limit is one on the number of a new descriptor, and new ones fill the gaps first.
  int limit = 0;
  for (int free = 0; free < count || isOpen(limit); ++limit) {
    free += isOpen(limit) ? 0 : 1;
  }
  ::getrlimit(RLIMIT_NOFILE, &before_);
  rlimit few = before_;
  few.rlim_cur = std::min<rlim_t>(few.rlim_cur, static_cast<rlim_t>(limit));
  ::setrlimit(RLIMIT_NOFILE, &few);
}

FewDescriptors::~FewDescriptors() {
  ::setrlimit(RLIMIT_NOFILE, &before_);
}

}  // namespace nodo::test
