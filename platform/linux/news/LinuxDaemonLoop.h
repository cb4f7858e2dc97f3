#pragma once

#include <platform/DaemonMachine.h>
#include <platform/linux/helper/HelperListener.h>
#include <platform/linux/news/EventLoop.h>
#include <platform/linux/news/MachineWatch.h>

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace nodo {

/// The service manager that started the daemon, where one did and wants to hear of it.
///
/// A unit that sets WatchdogSec= is fed all the time. Otherwise a watchdog is asked for only while
/// the lock is held, so that an idle daemon need not wake up to prove that it lives.
class ServiceManager {
 public:
  explicit ServiceManager(const EventLoop& loop);

  void tellReady();
  void tellStopping();

  /// While the lock is held this is also the proof of life, needed every three minutes.
  void tellLockHeld(bool held);

 private:
  void tell(const std::string& state);

  const EventLoop& loop_;
  bool loopFeedsWatchdog_ = false;
  bool lockHeld_ = false;
  bool failureWasLogged_ = false;
};

/// The daemon's loop on systemd's libraries. From its making on SIGTERM, SIGINT and SIGHUP no
/// longer end the process by themselves: they wait for `run`.
class LinuxDaemonLoop : public DaemonLoop {
 public:
  /// `bus` as makeDaemonLoop has it. Throws std::runtime_error.
  LinuxDaemonLoop(const std::optional<std::string>& bus, DaemonLog log);

  void serve(NODOHelperXPCProtocol& service) override;
  void setTimer(std::optional<Seconds> fromNow) override;
  void afterPass(bool lockHeld, const std::optional<SystemSnapshot>& seen) override;
  void announceChange() override;
  void run(const DaemonHandlers& handlers) override;

 private:
  static int onSignal(sd_event_source* source, const struct signalfd_siginfo* signal, void* loop);
  static int onBusLost(sd_bus_message* message, void* loop, sd_bus_error* error);
  void addSignals();
  void tellOfChange();
  void receive(std::uint32_t signal);

  DaemonHandlers handlers_;
  EventLoop events_;
  std::array<SystemdHandle<sd_event_source>, 3> signals_;
  DaemonBus bus_;
  SystemdHandle<sd_bus_slot> busLost_;
  ServiceManager serviceManager_;
  MachineWatch watch_;
  LoopTimer timer_;
  AnnouncementPace pace_;
  LoopTimer announcement_;
  std::unique_ptr<HelperListener> listener_;
};

}  // namespace nodo
