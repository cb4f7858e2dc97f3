#import <platform/macos/XPCConnectionPeer.h>

#include <cstring>

#include <mach/message.h>
#include <objc/runtime.h>

namespace nodo {
namespace {

// By name: the compiler knows no method of that selector, so it could get its result type wrong.
SEL auditTokenSelector() {
  static const SEL selector = NSSelectorFromString(@"auditToken");
  return selector;
}

}  // namespace

std::optional<AuditToken> XPCConnectionPeer::auditToken() const {
  using Getter = audit_token_t (*)(id, SEL);

  const SEL selector = auditTokenSelector();
  if (![connection_ respondsToSelector:selector]) {
    return std::nullopt;
  }
  const Method method = class_getInstanceMethod([connection_ class], selector);
  if (method == nullptr) {
    return std::nullopt;
  }
  const auto get = reinterpret_cast<Getter>(method_getImplementation(method));
  const audit_token_t token = get(connection_, selector);
  AuditToken bytes;
  static_assert(sizeof bytes == sizeof token);
  std::memcpy(bytes.data(), &token, sizeof token);
  return bytes;
}

}  // namespace nodo
