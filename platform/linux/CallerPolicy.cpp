#include <platform/linux/CallerPolicy.h>

#include <fmt/format.h>

namespace nodo {
namespace {

constexpr std::uint32_t root = 0;

CallerVerdict refuse(std::string reason) {
  return {.kind = CallerVerdict::Kind::refuse, .reason = std::move(reason)};
}

}  // namespace

CallerVerdict CallerPolicy::judge(RequestKind kind, std::optional<std::uint32_t> caller) const {
  if (kind == RequestKind::look || caller == root ||
      (isOwnUsersBus && caller && *caller == ownUser)) {
    return {.kind = CallerVerdict::Kind::serve, .reason = ""};
  }
  if (!caller) {
    return refuse("the bus does not tell whose request this is");
  }
  if (!hasAuthority) {
    return refuse("on this bus only its own user and root may do this");
  }
  return {.kind = CallerVerdict::Kind::askAuthority, .reason = ""};
}

CallerVerdict CallerPolicy::judge(const AuthorityAnswer& answer) {
  if (answer.failure) {
    return refuse("polkit cannot be asked: " + *answer.failure);
  }
  if (answer.isAuthorized) {
    return {.kind = CallerVerdict::Kind::serve, .reason = ""};
  }
  if (answer.needsAuthentication) {
    return refuse(fmt::format("polkit wants an administrator's password for {}", action));
  }
  return refuse(fmt::format("polkit does not allow {}", action));
}

std::string rejectionLogMessage(const std::string& caller, std::optional<std::uint32_t> user,
                                const std::string& reason) {
  return fmt::format("nodod: rejected D-Bus caller {} (uid {}): {}", caller,
                     user ? std::to_string(*user) : "unknown", reason);
}

}  // namespace nodo
