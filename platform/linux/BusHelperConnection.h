#pragma once

#include <NODOCore/helper/HelperConnection.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

namespace nodo {

class BusHelperLink;

/// A connection to the daemon over D-Bus, on a bus connection of its own.
///
/// Has no thread: requests are sent and answered inside `serve`, and all handlers but that of the
/// invalidation run there. See BusHelperLink for what they are told.
class BusHelperConnection : public HelperConnection {
 public:
  /// `bus` as in `helperConnecting`; `serviceName` is the name that the daemon owns there.
  BusHelperConnection(std::optional<std::string> bus, std::string serviceName);
  BusHelperConnection(const BusHelperConnection&) = delete;
  BusHelperConnection& operator=(const BusHelperConnection&) = delete;
  ~BusHelperConnection() override;

  void setInvalidationHandler(Handler handler) override;
  void setInterruptionHandler(Handler handler) override;

  void resume() override {}

  std::shared_ptr<NODOHelperXPCProtocol> remoteProxy(ErrorHandler errorHandler) override;
  void serve(std::chrono::steady_clock::time_point deadline) override;
  void invalidate() override;

 private:
  Handler invalidated_;
  std::shared_ptr<BusHelperLink> link_;
};

/// Makes such connections. Safe from several threads at once.
class BusHelperConnecting : public HelperConnecting {
 public:
  explicit BusHelperConnecting(std::optional<std::string> bus);

  std::unique_ptr<HelperConnection> privilegedConnection(
      const std::string& machServiceName) const override;

 private:
  std::optional<std::string> bus_;
};

}  // namespace nodo
