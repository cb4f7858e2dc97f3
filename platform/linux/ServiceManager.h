#pragma once

#include <platform/linux/EventLoop.h>

#include <string>

namespace nodo {

/// The service manager that started the daemon, where one did and wants to hear of it.
///
/// A unit that sets WatchdogSec= is fed all the time. Otherwise a watchdog is asked for only while
/// the lock is held, so that an idle daemon need not wake up to prove that it lives.
class ServiceManager {
 public:
  explicit ServiceManager(EventLoop& loop);

  void tellReady();
  void tellStopping();

  /// While the lock is held this is also the proof of life, needed every three minutes.
  void tellLockHeld(bool held);

 private:
  void tell(const std::string& state);

  bool loopFeedsWatchdog_ = false;
  bool lockHeld_ = false;
  bool failureWasLogged_ = false;
};

}  // namespace nodo
