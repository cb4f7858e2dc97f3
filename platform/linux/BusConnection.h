#pragma once

#include <platform/linux/SystemdHandles.h>

#include <chrono>
#include <string>

namespace nodo {

/// Whether messages may bring file descriptors. Everybody on the bus may send some, in signals, and
/// they count as this process's until the messages are dropped.
enum class BusDescriptors { refused, taken };

/// Begins to connect to the bus at `address`, as a client; the rest is done while it is processed.
/// `action` says what is tried. Throws BusError.
BusHandle startBus(const std::string& address, BusDescriptors descriptors,
                   const std::string& action);

/// Does one step of what there is to do on `bus`, or waits for something until `deadline`, which
/// has passed when it returns false. `action` says what is done. Throws BusError when the bus is
/// lost.
bool processBus(sd_bus* bus, std::chrono::steady_clock::time_point deadline,
                const std::string& action);

/// Connects to the bus at `address` and signs in, by `deadline` or within `timeLimit`. `action`
/// says what is tried. Throws BusTimeout, and BusError for other failures.
BusHandle openBus(const std::string& address, BusDescriptors descriptors,
                  std::chrono::steady_clock::time_point deadline, const std::string& action);
BusHandle openBus(const std::string& address, BusDescriptors descriptors,
                  std::chrono::milliseconds timeLimit, const std::string& action);

/// A connection to a bus with a time limit on every step, so that no hung service or bus can hold
/// up its caller. Not thread-safe.
class BusConnection {
 public:
  /// Connects to the bus at `address` and signs in within `connectLimit`; `callLimit` bounds each
  /// later call. Throws BusError.
  static BusConnection open(const std::string& address, std::chrono::milliseconds connectLimit,
                            std::chrono::milliseconds callLimit,
                            BusDescriptors descriptors = BusDescriptors::refused);

  /// The same to the system bus.
  static BusConnection openSystem(std::chrono::milliseconds connectLimit,
                                  std::chrono::milliseconds callLimit,
                                  BusDescriptors descriptors = BusDescriptors::refused);

  /// A call of `interface`.`member` on `path` of `service`, ready for its arguments.
  BusMessage newCall(const std::string& service, const std::string& path,
                     const std::string& interface, const std::string& member) const;

  /// Sends `call` and waits for the reply. A service that is not running is not started: nodo looks
  /// at the machine, it does not change it. Throws BusRefusal with the service's own words when it
  /// answered with an error, BusError when there was no answer.
  BusMessage send(const BusMessage& call) const;

 private:
  BusConnection(BusHandle bus, std::chrono::milliseconds callLimit);

  // The library keeps whatever comes before a reply until somebody asks for it.
  void dropWhatOthersSent() const;

  BusHandle bus_;
  std::chrono::milliseconds callLimit_;
};
}  // namespace nodo
