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

  /// Calls `listener` in the loop. Uses `systemBus`, or a connection of its own when that is null;
  /// one that cannot be had or gets lost is logged, once, and waits for `repair`.
  LogindSignals(EventLoop& loop, sd_bus* systemBus, Listener listener);

  LogindSignals(const LogindSignals&) = delete;
  LogindSignals& operator=(const LogindSignals&) = delete;
  ~LogindSignals() = default;

  /// Connects anew if there is no connection.
  void repair();

 private:
  struct Connection {
    BusHandle own;
    SystemdHandle<sd_bus_slot> sleep;
    SystemdHandle<sd_bus_slot> properties;
    SystemdHandle<sd_bus_slot> lost;
  };

  void connect();
  void subscribe(sd_bus* bus);
  void logLoss(const std::string& reason);
  static int onSubscribed(sd_bus_message* answer, void* signals, sd_bus_error* error);
  static int onSleep(sd_bus_message* message, void* signals, sd_bus_error* error);
  static int onProperties(sd_bus_message* message, void* signals, sd_bus_error* error);
  static int onLost(sd_bus_message* message, void* signals, sd_bus_error* error);

  EventLoop& loop_;
  Listener listener_;
  Connection connection_;
  bool isConnected_ = false;
  bool lossWasLogged_ = false;
};

}  // namespace nodo
