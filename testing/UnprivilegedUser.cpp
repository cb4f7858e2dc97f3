#include <testing/UnprivilegedUser.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <system_error>

#include <unistd.h>

namespace nodo::test {
namespace {

constexpr uid_t nobody = 65534;

}  // namespace

UnprivilegedUser::UnprivilegedUser() : before_(::geteuid()) {
  if (before_ == 0 && ::seteuid(nobody) != 0) {
    throw std::system_error(errno, std::generic_category(), "seteuid");
  }
}

UnprivilegedUser::~UnprivilegedUser() {
  if (::seteuid(before_) != 0) {
    std::perror("seteuid");  // every later test would run as somebody else
    std::abort();
  }
}

}  // namespace nodo::test
