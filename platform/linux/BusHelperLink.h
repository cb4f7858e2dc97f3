#pragma once

#include <NODOCore/helper/HelperConnection.h>
#include <platform/linux/BusConnection.h>

#include <chrono>
#include <functional>
#include <list>
#include <optional>
#include <string>
#include <vector>

#include <systemd/sd-bus.h>

namespace nodo {

/// One request on its way to the daemon.
struct BusHelperRequest {
  std::string member;                              ///< the method's name
  std::function<void(sd_bus_message*)> arguments;  ///< appends them; throws BusError
  HelperReply reply;
  HelperConnection::ErrorHandler failed;
};

/// What a BusHelperConnection does: connects, sends the requests and passes on what comes back.
///
/// A request that cannot be delivered is told to its error handler as a HelperConnectionError; a
/// bus that goes away during a request, to the interruption handler. Not thread-safe.
class BusHelperLink {
 public:
  using Clock = std::chrono::steady_clock;

  /// `bus` as in `helperConnecting`; `serviceName` is the name that the daemon owns there.
  BusHelperLink(std::optional<std::string> bus, std::string serviceName);
  BusHelperLink(const BusHelperLink&) = delete;
  BusHelperLink& operator=(const BusHelperLink&) = delete;
  ~BusHelperLink();

  void setInterruptionHandler(HelperConnection::Handler handler);

  /// Takes a request, to be sent by the next `serve`. After the end its error handler is told.
  void post(BusHelperRequest request);

  /// Connects if need be, sends what was posted and waits until all of it is answered or has
  /// failed, or until `deadline`: then the rest stays without a word.
  void serve(Clock::time_point deadline);

  /// Lets go of the bus; nobody is told of anything any more.
  void end();

 private:
  struct Pending;

  void connect(Clock::time_point deadline);
  void connectTo(const std::string& bus, Clock::time_point deadline);
  void exchange(Clock::time_point deadline);
  void send(const BusHelperRequest& request);
  void sendOrThrow(const BusHelperRequest& request);
  static int received(sd_bus_message* message, void* pending, sd_bus_error* error);
  void answer(const Pending& asked, sd_bus_message* message);
  std::string explained(const sd_bus_error& error) const;

  std::optional<std::string> choice_;
  std::string serviceName_;
  HelperConnection::Handler interrupted_;
  std::string busName_;       // for people: "the system bus"
  std::string startCommand_;  // that would make the daemon answer there
  bool hasEnded_ = false;
  std::vector<BusHelperRequest> posted_;
  std::list<Pending> pending_;  // sent and not answered
  BusHandle bus_;               // calls back with what is pending, so it goes first
};

}  // namespace nodo
