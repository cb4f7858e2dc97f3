#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/daemon/DaemonLoop.h>
#include <platform/linux/bus/BusConnection.h>

#include <chrono>
#include <cstdint>
#include <exception>
#include <functional>
#include <optional>
#include <string>

namespace nodo {

/// The thread's event loop, for callbacks that may throw although a C library calls them. Not
/// thread-safe.
class EventLoop {
 public:
  explicit EventLoop(DaemonLog log);

  sd_event* get() const { return event_.get(); }

  /// Writes a line of the daemon's log.
  void log(const std::string& line) const { log_(line); }

  /// Serves `bus` in the loop. `lost` is called with `userData` when the connection has gone,
  /// unless the result is let go of before. `action` is for the error's text. Throws BusError.
  SystemdHandle<sd_bus_slot> attach(sd_bus* bus, sd_bus_message_handler_t lost, void* userData,
                                    const std::string& action);

  /// Calls `action` from a callback of the C library's. An exception ends the loop and comes out of
  /// `run`.
  void protect(const std::function<void()>& action) noexcept;

  /// Ends the loop once the callback that runs now has returned.
  void end();

  /// Ends the loop with an error.
  void fail(std::exception_ptr error) noexcept;

  /// Serves events until the loop is ended; throws the error that ended it.
  void run();

 private:
  DaemonLog log_;
  SystemdHandle<sd_event> event_;
  std::exception_ptr error_;
};

/// Fires once, when it is due and the loop runs.
class LoopTimer {
 public:
  /// `clock`: CLOCK_BOOTTIME counts time asleep, CLOCK_MONOTONIC does not. The system may let it
  /// fire up to `accuracy` later, together with other timers.
  LoopTimer(EventLoop& loop, clockid_t clock, std::chrono::microseconds accuracy,
            std::function<void()> fired);

  LoopTimer(const LoopTimer&) = delete;
  LoopTimer& operator=(const LoopTimer&) = delete;
  ~LoopTimer() = default;

  /// Replaces what was set; nothing means never, as do more than a hundred years, and what is past
  /// means now.
  void set(std::optional<Seconds> fromNow);

 private:
  static int onTime(sd_event_source* source, std::uint64_t time, void* timer);

  EventLoop& loop_;
  clockid_t clock_;
  std::function<void()> fired_;
  SystemdHandle<sd_event_source> source_;
};

}  // namespace nodo
