#include <platform/linux/EventLoop.h>

#include <ctime>
#include <utility>

namespace nodo {
namespace {

constexpr std::uint64_t never = UINT64_MAX;

std::uint64_t now(clockid_t clock) {
  timespec time{};
  ::clock_gettime(clock, &time);
  return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000 +
         static_cast<std::uint64_t>(time.tv_nsec) / 1000;
}

}  // namespace

EventLoop::EventLoop() {
  sd_event* made = nullptr;
  checkSystemd(sd_event_new(&made), "make an event loop");
  event_.reset(made);
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
  sd_event_source* made = nullptr;
  checkSystemd(sd_event_add_time(loop_.get(), &made, clock_, never,
                                 static_cast<std::uint64_t>(accuracy.count()), onTime, this),
               "make a timer");
  source_.reset(made);
  checkSystemd(sd_event_source_set_enabled(made, SD_EVENT_OFF), "make a timer");
}

void LoopTimer::set(std::optional<std::chrono::microseconds> fromNow) {
  const auto wait = fromNow && fromNow->count() > 0 ? static_cast<std::uint64_t>(fromNow->count())
                                                    : std::uint64_t{0};
  const std::uint64_t due = fromNow ? now(clock_) + wait : never;
  checkSystemd(sd_event_source_set_time(source_.get(), due), "set a timer");
  checkSystemd(
      sd_event_source_set_enabled(source_.get(), fromNow ? SD_EVENT_ONESHOT : SD_EVENT_OFF),
      "set a timer");
}

bool LoopTimer::isSet() const {
  int enabled = SD_EVENT_OFF;
  checkSystemd(sd_event_source_get_enabled(source_.get(), &enabled), "look at a timer");
  return enabled != SD_EVENT_OFF;
}

int LoopTimer::onTime(sd_event_source* /*source*/, std::uint64_t /*time*/, void* timer) {
  auto& self = *static_cast<LoopTimer*>(timer);
  self.loop_.protect(self.fired_);
  return 0;
}

}  // namespace nodo
