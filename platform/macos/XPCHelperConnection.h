#pragma once

#include <NODOCore/helper/HelperConnection.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

namespace nodo {

/// An error of the XPC system, as it stands.
class XPCError : public HelperConnectionError {
 public:
  XPCError(std::string domain, std::int64_t code, const std::string& description)
      : HelperConnectionError(description, !saysThatNothingIsThere(domain, code)),
        domain_(std::move(domain)),
        code_(code) {}

  const std::string& domain() const { return domain_; }

  std::int64_t code() const { return code_; }

  bool operator==(const XPCError& other) const {
    return domain_ == other.domain_ && code_ == other.code_ && std::string(what()) == other.what();
  }

 private:
  // NSXPCConnectionInvalid: there is no such service. The others tell of one that ended, or whose
  // answer cannot be used.
  static bool saysThatNothingIsThere(const std::string& domain, std::int64_t code) {
    return domain == "NSCocoaErrorDomain" && code == 4099;
  }

  std::string domain_;
  std::int64_t code_;
};

/// The daemon's Mach service, reached by privileged XPC connections. Errors are XPCError.
class XPCHelperConnecting : public HelperConnecting {
 public:
  std::unique_ptr<HelperConnection> privilegedConnection(
      const std::string& machServiceName) const override;
};

}  // namespace nodo
