#include <platform/linux/LinuxDaemonLoop.h>

#include <chrono>
#include <csignal>
#include <ctime>
#include <exception>
#include <stdexcept>

#include <sys/signalfd.h>

namespace nodo {
namespace {

using std::chrono::microseconds;

// Coarse enough to fire together with other timers of the machine's.
constexpr std::chrono::milliseconds timerAccuracy(50);
// Beyond a hundred years nobody waits, and the clock's microseconds would overflow some day.
constexpr Seconds never(3.2e9);

}  // namespace

LinuxDaemonLoop::LinuxDaemonLoop(const std::optional<std::string>& bus)
    : bus_(openDaemonBus(bus)),
      serviceManager_(events_),
      watch_(events_, bus_.kind == DaemonBus::Kind::system ? bus_.connection.get() : nullptr,
             [this](const std::vector<News>& news) { handlers_.machineChanged(news); }),
      timer_(events_, CLOCK_BOOTTIME, timerAccuracy, [this] { timerFired(); }) {
  addSignals();
  addBus();
}

void LinuxDaemonLoop::addSignals() {
  sigset_t signals;
  ::sigemptyset(&signals);
  ::sigaddset(&signals, SIGTERM);
  ::sigaddset(&signals, SIGINT);
  checkSystemd(-::pthread_sigmask(SIG_BLOCK, &signals, nullptr), "block signals");
  for (auto [signal, handle] :
       {std::pair(SIGTERM, &terminateSignal_), std::pair(SIGINT, &interruptSignal_)}) {
    sd_event_source* made = nullptr;
    checkSystemd(sd_event_add_signal(events_.get(), &made, signal, onSignal, this),
                 "wait for signals");
    handle->reset(made);
    // Not behind requests that keep coming.
    checkSystemd(sd_event_source_set_priority(made, SD_EVENT_PRIORITY_IMPORTANT),
                 "wait for signals");
  }
}

void LinuxDaemonLoop::addBus() {
  sd_bus* const bus = bus_.connection.get();
  sd_bus_slot* made = nullptr;
  checkSystemd(sd_bus_match_signal(bus, &made, nullptr, nullptr, "org.freedesktop.DBus.Local",
                                   "Disconnected", onBusLost, this),
               "serve " + bus_.name);
  busLost_.reset(made);
  checkSystemd(sd_bus_attach_event(bus, events_.get(), SD_EVENT_PRIORITY_NORMAL),
               "serve " + bus_.name);
}

void LinuxDaemonLoop::serve(NODOHelperXPCProtocol& service) {
  listener_ = std::make_unique<HelperListener>(events_, bus_, service);
}

void LinuxDaemonLoop::setTimer(std::optional<Seconds> fromNow) {
  if (!fromNow || *fromNow > never) {
    timer_.set(std::nullopt);
    return;
  }
  // The comparison is false for what is no number, too.
  const Seconds wait = *fromNow > Seconds(0) ? *fromNow : Seconds(0);
  timer_.set(std::chrono::ceil<microseconds>(wait));
}

void LinuxDaemonLoop::setLockHeld(bool held) {
  serviceManager_.tellLockHeld(held);
  // Follows every pass, so while the lock is held what got lost is sought within a minute.
  watch_.repair();
}

void LinuxDaemonLoop::run(const DaemonHandlers& handlers) {
  handlers_ = handlers;
  serviceManager_.tellReady();
  events_.run();
}

int LinuxDaemonLoop::onSignal(sd_event_source* /*source*/, const signalfd_siginfo* /*signal*/,
                              void* loop) {
  auto& self = *static_cast<LinuxDaemonLoop*>(loop);
  self.events_.protect([&self] { self.terminate(); });
  return 0;
}

void LinuxDaemonLoop::terminate() {
  serviceManager_.tellStopping();
  handlers_.terminate();
  events_.end();
}

int LinuxDaemonLoop::onBusLost(sd_bus_message* /*message*/, void* loop, sd_bus_error* /*error*/) {
  auto& self = *static_cast<LinuxDaemonLoop*>(loop);
  self.events_.fail(std::make_exception_ptr(std::runtime_error(self.bus_.name + " has gone")));
  return 0;
}

void LinuxDaemonLoop::timerFired() {
  handlers_.timerFired();
}

}  // namespace nodo
