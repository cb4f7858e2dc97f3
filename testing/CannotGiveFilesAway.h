#pragma once

#include <cstdint>

namespace nodo::test {

/// While it lives, this thread may not change the owner of files even as root, as in a hardened
/// service. Does nothing for any other user.
class CannotGiveFilesAway {
 public:
  CannotGiveFilesAway();
  CannotGiveFilesAway(const CannotGiveFilesAway&) = delete;
  CannotGiveFilesAway& operator=(const CannotGiveFilesAway&) = delete;
  ~CannotGiveFilesAway();

 private:
  std::uint32_t before_ = 0;
};

}  // namespace nodo::test
