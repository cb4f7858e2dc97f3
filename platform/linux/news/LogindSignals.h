#pragma once

#include <platform/linux/news/EventLoop.h>

#include <functional>
#include <string>

namespace nodo {

/// Listens to logind's signals on the system bus: the machine woke up, the lid moved.
class LogindSignals {
 public:
  struct Listener {
    std::function<void()> lidChanged;
    std::function<void()> resumed;
  };

  /// Calls `listener` in the loop. Uses `shared`, or a connection of its own when that is null.
  /// A connection that cannot be had or gets lost, and a bus that does not let it listen, is
  /// logged, once, and waits for `repair`.
  LogindSignals(EventLoop& loop, sd_bus* shared, Listener listener);

  LogindSignals(const LogindSignals&) = delete;
  LogindSignals& operator=(const LogindSignals&) = delete;
  ~LogindSignals() = default;

  /// Tries again to listen if it does not.
  void repair();

 private:
  struct Connection {
    BusHandle own;
    SystemdHandle<sd_bus_slot> sleep;
    SystemdHandle<sd_bus_slot> properties;
    SystemdHandle<sd_bus_slot> lost;
    int agreedTo = 0;  ///< how many of the two signals the bus has agreed to send
  };

  void listen();
  void subscribe(sd_bus* bus);
  void logLoss(const std::string& reason);
  static int onAnswer(sd_bus_message* answer, void* signals, sd_bus_error* error);
  static int onSleep(sd_bus_message* message, void* signals, sd_bus_error* error);
  static int onProperties(sd_bus_message* message, void* signals, sd_bus_error* error);
  static int onLost(sd_bus_message* message, void* signals, sd_bus_error* error);

  EventLoop& loop_;
  sd_bus* shared_;
  Listener listener_;
  Connection connection_;
  bool isListening_ = false;
  bool lossWasLogged_ = false;
};

}  // namespace nodo
