#pragma once

#include <NODOCore/helper/NODOXPCClientAuthentication.h>

#include <cstdint>
#include <optional>
#include <string>

namespace nodo::test {

/// The Security framework as a test sets it. One for the process, to be `reset` before each test.
struct FakeSecurity {
  std::int32_t guestStatus = 0;
  bool givesGuest = true;
  std::int32_t requirementStatus = 0;
  bool givesRequirement = true;
  std::int32_t validityStatus = 0;
  bool givesError = false;

  std::optional<AuditToken> askedToken;
  std::optional<std::string> askedRequirement;
  bool checkedBoth = false;  ///< the validity check was given the two objects made before

  static FakeSecurity& instance();

  void reset() { *this = FakeSecurity(); }
};

}  // namespace nodo::test
