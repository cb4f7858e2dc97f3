#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace nodo {

/// What a request on the bus does: only looks, or changes something.
enum class RequestKind { look, change };

/// What polkit said of a caller, or why it said nothing.
struct AuthorityAnswer {
  bool isAuthorized = false;
  bool needsAuthentication = false;  ///< it would be authorised after giving a password
  std::optional<std::string> failure;
};

/// What becomes of a request, and why when it is refused.
struct CallerVerdict {
  enum class Kind { serve, askAuthority, refuse };

  Kind kind = Kind::refuse;
  std::string reason;

  bool operator==(const CallerVerdict&) const = default;
};

/// Decides whose requests the daemon serves on a bus. Closed when in doubt. Pure.
///
/// Anyone on the bus may look. Changes are for root, on a bus of the daemon's own user for that
/// user, and for those whom polkit allows the action. The bus says which user a caller is;
/// a process id never does, as it may be another's by the time it is looked at.
struct CallerPolicy {
  static constexpr char action[] = "com.quintavel.nodo.keep-awake";

  std::uint32_t ownUser = 0;
  bool isOwnUsersBus = false;
  /// Whether polkit, on the same bus, knows this bus's callers by their names there.
  bool hasAuthority = false;

  /// `caller`: the user's id by the bus; absent when the bus does not tell.
  CallerVerdict judge(RequestKind kind, std::optional<std::uint32_t> caller) const;

  /// After polkit was asked.
  static CallerVerdict judge(const AuthorityAnswer& answer);
};

/// The line in the daemon's log about a refusal, without its end. `caller` is the name on the bus.
std::string rejectionLogMessage(const std::string& caller, std::optional<std::uint32_t> user,
                                const std::string& reason);

}  // namespace nodo
