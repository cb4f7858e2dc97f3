#pragma once

#include <NODOCore/helper/HelperConnection.h>

#include <memory>
#include <optional>
#include <string>
#include <thread>

namespace nodo {

class BusHelperMailbox;

/// A connection to the daemon over D-Bus, on a bus connection of its own.
///
/// The caller blocks until its reply, so the bus is served by a thread that lives from `resume` to
/// `invalidate`: all handlers and replies run on it. It waits for the bus and for its owner at
/// once, so that `invalidate` ends it whatever the bus or the daemon does. A request that cannot be
/// delivered is told to its error handler as a HelperConnectionError; a bus that goes away during a
/// request, to the interruption handler.
class BusHelperConnection : public HelperConnection {
 public:
  /// `bus` as in `helperConnecting`; `serviceName` is the name that the daemon owns there.
  BusHelperConnection(std::optional<std::string> bus, std::string serviceName);
  BusHelperConnection(const BusHelperConnection&) = delete;
  BusHelperConnection& operator=(const BusHelperConnection&) = delete;
  ~BusHelperConnection() override;

  void setInvalidationHandler(Handler handler) override;
  void setInterruptionHandler(Handler handler) override;
  /// Throws std::system_error when there can be no further thread or descriptor.
  void resume() override;
  std::shared_ptr<NODOHelperXPCProtocol> remoteProxy(ErrorHandler errorHandler) override;
  void invalidate() override;

 private:
  std::optional<std::string> bus_;
  std::string serviceName_;
  Handler invalidated_;
  Handler interrupted_;
  std::shared_ptr<BusHelperMailbox> mailbox_;
  std::thread thread_;
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
