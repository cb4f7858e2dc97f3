#pragma once

#include <NODOCore/helper/HelperConnection.h>
#include <platform/linux/bus/BusConnection.h>

#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace nodo {

/// The bus that a client asks the daemon on.
struct ClientBus {
  BusHandle connection;
  std::string name;     ///< what it is called, see systemBus
  std::string absence;  ///< for people, when no daemon answers: where it is not, how to start it
};

/// Connects to the bus that is called `choice`. Without one it is the system bus when it can be
/// reached, unless nobody has the name `serviceName` there and somebody has it on the session bus;
/// else it is the session bus. Starts nobody, and leaves half the time until `deadline` when only
/// the session bus hangs. Throws BusTimeout when the bus hangs, BusError when none can be reached.
ClientBus findDaemon(const std::optional<std::string>& choice, const std::string& serviceName,
                     BusClock::time_point deadline);

/// What a request does where there is no daemon, but a file that says how to start it.
enum class AbsentDaemon { isStarted, staysAbsent };

/// A connection to the daemon over D-Bus, on a bus connection of its own.
///
/// Has no thread: requests are sent and answered inside `serve`, and all handlers but that of the
/// invalidation run there. A request that cannot be delivered is told to its error handler as a
/// HelperConnectionError; a bus that goes away during a request, to the interruption handler. Not
/// thread-safe; proxies must not outlive it.
class BusHelperConnection : public HelperConnection {
 public:
  /// `bus` as in `helperConnecting`; `serviceName` is the name that the daemon owns there.
  BusHelperConnection(std::optional<std::string> bus, std::string serviceName,
                      AbsentDaemon absent = AbsentDaemon::isStarted);

  BusHelperConnection(const BusHelperConnection&) = delete;
  BusHelperConnection& operator=(const BusHelperConnection&) = delete;
  ~BusHelperConnection() override = default;

  void setInvalidationHandler(Handler handler) override;
  void setInterruptionHandler(Handler handler) override;

  void resume() override {}

  std::shared_ptr<NODOHelperXPCProtocol> remoteProxy(ErrorHandler errorHandler) override;

  /// Connects if need be, sends what was asked for and waits until all of it is answered or has
  /// failed, or until `deadline`: then the rest stays without a word.
  void serve(BusClock::time_point deadline) override;

  void invalidate() override;

 private:
  class Proxy;

  struct Asked {
    HelperRequest request;
    HelperReply reply;
    ErrorHandler failed;
  };

  struct Sent {
    BusHelperConnection& connection;
    Asked asked;
  };

  void ask(Asked asked);
  void connect(BusClock::time_point deadline);
  void exchange(BusClock::time_point deadline);
  void send(const Asked& asked);
  static int onAnswer(sd_bus_message* message, void* sent, sd_bus_error* error);
  void hearAnswer(const Sent& sent, sd_bus_message* message);
  std::string explained(const sd_bus_error& error) const;

  std::optional<std::string> choice_;
  std::string serviceName_;
  AbsentDaemon absent_;
  Handler invalidated_;
  Handler interrupted_;
  bool hasEnded_ = false;
  std::vector<Asked> asked_;  // and not sent
  std::list<Sent> sent_;      // and not answered
  ClientBus bus_;             // calls back with what was sent, so it goes first
};

}  // namespace nodo
