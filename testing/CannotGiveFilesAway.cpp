#include <testing/CannotGiveFilesAway.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <system_error>

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace nodo::test {
namespace {

using Capabilities = std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3>;

__user_cap_header_struct ofThisThread() {
  return {.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
}

bool get(Capabilities& found) {
  auto header = ofThisThread();
  return ::syscall(SYS_capget, &header, found.data()) == 0;
}

bool makeEffective(std::uint32_t lowest) {
  auto header = ofThisThread();
  Capabilities wanted{};
  if (!get(wanted)) {
    return false;
  }
  wanted[0].effective = lowest;
  return ::syscall(SYS_capset, &header, wanted.data()) == 0;
}

}  // namespace

CannotGiveFilesAway::CannotGiveFilesAway() {
  Capabilities found{};
  if (!get(found)) {
    throw std::system_error(errno, std::generic_category(), "capget");
  }
  before_ = found[0].effective;
  if (!makeEffective(before_ & ~(1U << CAP_CHOWN))) {
    throw std::system_error(errno, std::generic_category(), "capset");
  }
}

CannotGiveFilesAway::~CannotGiveFilesAway() {
  if (!makeEffective(before_)) {
    std::perror("capset");  // every later test would have fewer rights
    std::abort();
  }
}

}  // namespace nodo::test
