#include <platform/linux/DaemonLog.h>
#include <platform/linux/ServiceManager.h>

#include <cstring>

#include <systemd/sd-daemon.h>

namespace nodo {
namespace {

// Three of the daemon's polls.
constexpr char watchdogMicroseconds[] = "180000000";

std::string statusOf(bool lockHeld) {
  return lockHeld ? "STATUS=Keeping the machine awake" : "STATUS=Idle";
}

}  // namespace

ServiceManager::ServiceManager(EventLoop& loop) {
  const int feeds = sd_event_set_watchdog(loop.get(), 1);
  checkSystemd(feeds, "feed the service manager's watchdog");
  loopFeedsWatchdog_ = feeds > 0;
}

void ServiceManager::tellReady() {
  tell("READY=1\n" + statusOf(lockHeld_));
}

void ServiceManager::tellStopping() {
  tell("STOPPING=1\nSTATUS=Stopping");
}

void ServiceManager::tellLockHeld(bool held) {
  if (held == lockHeld_) {
    if (held && !loopFeedsWatchdog_) {
      tell("WATCHDOG=1");
    }
    return;
  }
  lockHeld_ = held;
  std::string state = statusOf(held);
  if (!loopFeedsWatchdog_) {
    // The proof of life goes along, as the time may count from an earlier one. Zero is "off".
    state += held ? std::string("\nWATCHDOG=1\nWATCHDOG_USEC=") + watchdogMicroseconds
                  : "\nWATCHDOG_USEC=0";
  }
  tell(state);
}

void ServiceManager::tell(const std::string& state) {
  const int result = sd_notify(0, state.c_str());
  if (result < 0 && !failureWasLogged_) {
    failureWasLogged_ = true;
    logLine(std::string("nodod: cannot tell the service manager: ") + std::strerror(-result));
  }
}

}  // namespace nodo
