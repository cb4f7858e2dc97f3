#include <NODOCore/base/System.h>
#include <platform/linux/news/EventLoop.h>
#include <platform/linux/news/LinuxDaemonLoop.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <ctime>
#include <exception>
#include <stdexcept>

#include <sys/signalfd.h>
#include <systemd/sd-daemon.h>

namespace nodo {
namespace {

// Coarse enough to fire together with other timers of the machine's.
constexpr std::chrono::milliseconds timerAccuracy(50);
// Three of the daemon's polls.
constexpr char watchdogMicroseconds[] = "180000000";

std::string statusOf(bool lockHeld) {
  return lockHeld ? "STATUS=Keeping the machine awake" : "STATUS=Idle";
}

}  // namespace

ServiceManager::ServiceManager(const EventLoop& loop) : loop_(loop) {
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
    loop_.log(std::string("cannot tell the service manager: ") + std::strerror(-result));
  }
}

LinuxDaemonLoop::LinuxDaemonLoop(const std::optional<std::string>& bus, DaemonLog log)
    : events_(std::move(log)),
      bus_(openDaemonBus(bus)),
      serviceManager_(events_),
      watch_(events_, bus_.name == systemBus ? bus_.connection.get() : nullptr,
             [this](const std::vector<News>& news) { handlers_.machineChanged(news); }),
      timer_(events_, CLOCK_BOOTTIME, timerAccuracy, [this] { handlers_.timerFired(); }),
      announcement_(events_, CLOCK_MONOTONIC, std::chrono::milliseconds(1),
                    [this] { tellOfChange(); }) {
  addSignals();
  busLost_ =
      events_.attach(bus_.connection.get(), onBusLost, this, "serve " + describedBus(bus_.name));
}

void LinuxDaemonLoop::addSignals() {
  constexpr std::array numbers{SIGTERM, SIGINT, SIGHUP};
  sigset_t signals;
  sigemptyset(&signals);
  for (const int number : numbers) {
    sigaddset(&signals, number);
  }
  checkSystemd(-::pthread_sigmask(SIG_BLOCK, &signals, nullptr), "block signals");
  constexpr char action[] = "wait for signals";
  for (std::size_t index = 0; index < numbers.size(); ++index) {
    SystemdHandle<sd_event_source>& source = signals_[index];
    checkSystemd(sd_event_add_signal(events_.get(), into(source), numbers[index], onSignal, this),
                 action);
    // Not behind requests that keep coming.
    checkSystemd(sd_event_source_set_priority(source.get(), SD_EVENT_PRIORITY_IMPORTANT), action);
  }
}

void LinuxDaemonLoop::serve(NODOHelperXPCProtocol& service) {
  listener_ = std::make_unique<HelperListener>(events_, bus_, service);
}

void LinuxDaemonLoop::setTimer(std::optional<Seconds> fromNow) {
  timer_.set(fromNow);
}

void LinuxDaemonLoop::afterPass(bool lockHeld, const std::optional<SystemSnapshot>& seen) {
  serviceManager_.tellLockHeld(lockHeld);
  // While the lock is held a pass comes every minute, and what got lost is sought with it.
  watch_.afterPass(seen);
}

void LinuxDaemonLoop::announceChange() {
  if (const auto delay = pace_.delay(awakeTime())) {
    announcement_.set(delay);
  }
}

void LinuxDaemonLoop::tellOfChange() {
  pace_.made(awakeTime());
  if (listener_) {
    listener_->announceChange();
  }
}

void LinuxDaemonLoop::run(const DaemonHandlers& handlers) {
  handlers_ = handlers;
  serviceManager_.tellReady();
  events_.run();
}

int LinuxDaemonLoop::onSignal(sd_event_source* /*source*/, const signalfd_siginfo* signal,
                              void* loop) {
  auto& self = *static_cast<LinuxDaemonLoop*>(loop);
  self.events_.protect([&self, signal] { self.receive(signal->ssi_signo); });
  return 0;
}

void LinuxDaemonLoop::receive(std::uint32_t signal) {
  if (signal == SIGHUP) {
    handlers_.hungUp();
    return;
  }
  serviceManager_.tellStopping();
  handlers_.terminate();
  events_.end();
}

int LinuxDaemonLoop::onBusLost(sd_bus_message* /*message*/, void* loop, sd_bus_error* /*error*/) {
  auto& self = *static_cast<LinuxDaemonLoop*>(loop);
  self.events_.fail(std::make_exception_ptr(BusError(describedBus(self.bus_.name) + " has gone")));
  return 0;
}
}  // namespace nodo
