#include <platform/linux/news/EventLoop.h>

#include <ctime>
#include <utility>

namespace nodo {
namespace {

// Nobody waits longer, and the clock's microseconds would overflow some day.
constexpr Seconds hundredYears(3.2e9);

std::uint64_t now(clockid_t clock) {
  timespec time{};
  ::clock_gettime(clock, &time);
  return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000 +
         static_cast<std::uint64_t>(time.tv_nsec) / 1000;
}

}  // namespace

EventLoop::EventLoop(DaemonLog log) : log_(std::move(log)) {
  checkSystemd(sd_event_new(into(event_)), "make an event loop");
}

SystemdHandle<sd_bus_slot> EventLoop::attach(sd_bus* bus, sd_bus_message_handler_t lost,
                                             void* userData, const std::string& action) {
  SystemdHandle<sd_bus_slot> slot;
  checkSystemd(sd_bus_match_signal(bus, into(slot), nullptr, nullptr, "org.freedesktop.DBus.Local",
                                   "Disconnected", lost, userData),
               action);
  checkSystemd(sd_bus_attach_event(bus, event_.get(), SD_EVENT_PRIORITY_NORMAL), action);
  return slot;
}

void EventLoop::protect(const std::function<void()>& action) noexcept {
  try {
    action();
  } catch (...) {
    fail(std::current_exception());
  }
}

void EventLoop::end() {
  checkSystemd(sd_event_exit(event_.get(), 0), "end the event loop");
}

void EventLoop::fail(std::exception_ptr error) noexcept {
  if (!error_) {
    error_ = std::move(error);
  }
  // Refused only when the loop is already over.
  sd_event_exit(event_.get(), 1);
}

void EventLoop::run() {
  const int result = sd_event_loop(event_.get());
  if (error_) {
    std::rethrow_exception(std::exchange(error_, nullptr));
  }
  checkSystemd(result, "wait for events");
}

LoopTimer::LoopTimer(EventLoop& loop, clockid_t clock, std::chrono::microseconds accuracy,
                     std::function<void()> fired)
    : loop_(loop), clock_(clock), fired_(std::move(fired)) {
  checkSystemd(sd_event_add_time(loop_.get(), into(source_), clock_, UINT64_MAX,
                                 static_cast<std::uint64_t>(accuracy.count()), onTime, this),
               "make a timer");
  set(std::nullopt);
}

void LoopTimer::set(std::optional<Seconds> fromNow) {
  constexpr char action[] = "set a timer";
  if (!fromNow || *fromNow > hundredYears) {
    checkSystemd(sd_event_source_set_enabled(source_.get(), SD_EVENT_OFF), action);
    return;
  }
  // The comparison is false for what is no number, too.
  const Seconds wait = *fromNow > Seconds(0) ? *fromNow : Seconds(0);
  const auto microseconds = std::chrono::ceil<std::chrono::microseconds>(wait).count();
  checkSystemd(sd_event_source_set_time(source_.get(),
                                        now(clock_) + static_cast<std::uint64_t>(microseconds)),
               action);
  checkSystemd(sd_event_source_set_enabled(source_.get(), SD_EVENT_ONESHOT), action);
}

int LoopTimer::onTime(sd_event_source* /*source*/, std::uint64_t /*time*/, void* timer) {
  auto& self = *static_cast<LoopTimer*>(timer);
  self.loop_.protect(self.fired_);
  return 0;
}

}  // namespace nodo
