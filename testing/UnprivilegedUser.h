#pragma once

#include <sys/types.h>

namespace nodo::test {

/// While it lives, this process acts as a user who may not do everything: where root runs the
/// tests, permissions deny nothing otherwise. Does nothing for any other user.
class UnprivilegedUser {
 public:
  UnprivilegedUser();
  UnprivilegedUser(const UnprivilegedUser&) = delete;
  UnprivilegedUser& operator=(const UnprivilegedUser&) = delete;
  ~UnprivilegedUser();

 private:
  uid_t before_;
};

}  // namespace nodo::test
