#pragma once

#include <NODOCore/helper/NODOXPCClientAuthentication.h>

#include <optional>

#import <Foundation/Foundation.h>

namespace nodo {

/// The process at the other end of an XPC connection. For use while the connection lives.
class XPCConnectionPeer : public XPCPeer {
 public:
  explicit XPCConnectionPeer(NSXPCConnection* connection) : connection_(connection) {}

  /// By the connection's own method for it, which the system has but does not declare: that it may
  /// be missing in some version is why it is looked for.
  std::optional<AuditToken> auditToken() const override;

 private:
  NSXPCConnection* connection_;
};

}  // namespace nodo
