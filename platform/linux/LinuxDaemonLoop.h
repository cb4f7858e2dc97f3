#pragma once

#include <platform/DaemonMachine.h>
#include <platform/linux/DaemonBus.h>
#include <platform/linux/EventLoop.h>
#include <platform/linux/HelperListener.h>
#include <platform/linux/MachineWatch.h>
#include <platform/linux/ServiceManager.h>

#include <memory>
#include <optional>
#include <string>

namespace nodo {

/// The daemon's loop on systemd's libraries. From its making on SIGTERM and SIGINT no longer end
/// the process by themselves: they wait for `run`.
class LinuxDaemonLoop : public DaemonLoop {
 public:
  /// `bus` as makeDaemonLoop has it. Throws std::runtime_error.
  explicit LinuxDaemonLoop(const std::optional<std::string>& bus);

  void serve(NODOHelperXPCProtocol& service) override;
  void setTimer(std::optional<Seconds> fromNow) override;
  void setLockHeld(bool held) override;
  void run(const DaemonHandlers& handlers) override;

 private:
  static int onSignal(sd_event_source* source, const struct signalfd_siginfo* signal, void* loop);
  static int onBusLost(sd_bus_message* message, void* loop, sd_bus_error* error);
  void addSignals();
  void addBus();
  void timerFired();
  void terminate();

  DaemonHandlers handlers_;
  EventLoop events_;
  SystemdHandle<sd_event_source> terminateSignal_;
  SystemdHandle<sd_event_source> interruptSignal_;
  DaemonBus bus_;
  SystemdHandle<sd_bus_slot> busLost_;
  ServiceManager serviceManager_;
  MachineWatch watch_;
  LoopTimer timer_;
  std::unique_ptr<HelperListener> listener_;
};

}  // namespace nodo
