#pragma once

#include <NODOCore/helper/HelperConnection.h>

#include <memory>
#include <string>

namespace nodo {

/// The daemon's Mach service, reached by privileged XPC connections. Errors are XPCError.
class XPCHelperConnecting : public HelperConnecting {
 public:
  std::unique_ptr<HelperConnection> privilegedConnection(
      const std::string& machServiceName) const override;
};

}  // namespace nodo
