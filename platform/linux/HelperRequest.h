#pragma once

#include <NODOCore/helper/NODOHelperXPCProtocol.h>
#include <platform/linux/CallerPolicy.h>
#include <platform/linux/SystemdHandles.h>

#include <memory>
#include <optional>
#include <string>

namespace nodo {

/// One request that came over the bus. Each has one answer at most; copies share it.
class BusCall {
 public:
  explicit BusCall(sd_bus_message* call);

  RequestKind kind() const;

  /// The caller's unique name on the bus.
  std::string caller() const;

  /// Whether the caller waits for what comes of it.
  bool wantsAnswer() const;

  sd_bus_message* message() const { return call_.get(); }

  /// Hands the request to `service`, whose reply becomes the answer. Arguments that make no sense
  /// are answered with an error.
  void serve(NODOHelperXPCProtocol& service) const;

  /// Answers with `text`, or with an error when there is none or it cannot be sent.
  void answer(const std::optional<std::string>& text) const;

  /// Answers with the D-Bus error `name`.
  void refuse(const char* name, const std::string& reason) const;

 private:
  std::shared_ptr<sd_bus_message> call_;
};

}  // namespace nodo
