#pragma once

#include <array>
#include <cstddef>
#include <optional>

namespace nodo {

/// The kernel's name for one running process. Unlike a process identifier it is never used again.
using AuditToken = std::array<std::byte, 32>;

/// The process at the other end of a connection that was not yet accepted.
class XPCPeer {
 public:
  virtual ~XPCPeer() = default;

  /// Absent when the connection offers none. Must not throw.
  virtual std::optional<AuditToken> auditToken() const = 0;
};

}  // namespace nodo
