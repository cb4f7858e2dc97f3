#include <NODOCore/base/System.h>
#include <NODOCore/helper/NODOHelperXPCProtocol.h>
#include <platform/macos/MacDaemonLoop.h>
#include <platform/macos/MachineNews.h>
#include <platform/macos/XPCHelperListener.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <exception>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#import <CoreFoundation/CoreFoundation.h>
#import <Foundation/Foundation.h>
#import <dispatch/dispatch.h>
#include <notify.h>

namespace nodo {
namespace {

// Far enough to be never, near enough for the system's count of nanoseconds.
constexpr Seconds longestTimer(366.0 * 24 * 3600);

/// A source of events on the main queue, under way until it is destroyed.
class MainQueueSource {
 public:
  MainQueueSource(dispatch_source_type_t type, uintptr_t handle, std::function<void()> event)
      : source_(dispatch_source_create(type, handle, 0, dispatch_get_main_queue())) {
    if (source_ == nullptr) {
      throw std::runtime_error("the system makes no dispatch source");
    }
    dispatch_source_set_event_handler(source_, ^{
      event();
    });
  }

  MainQueueSource(const MainQueueSource&) = delete;
  MainQueueSource& operator=(const MainQueueSource&) = delete;

  ~MainQueueSource() {
    dispatch_source_cancel(source_);
    dispatch_release(source_);
  }

 protected:
  dispatch_source_t source() const { return source_; }

 private:
  dispatch_source_t source_;
};

/// A timer that fires once, by the time awake: by the civil clock, one that is put back would delay
/// it. It stands still while the machine sleeps, and is late by that time on waking; but each
/// waking is news, the pass that follows sets it anew.
class Timer : public MainQueueSource {
 public:
  explicit Timer(std::function<void()> fired)
      : MainQueueSource(DISPATCH_SOURCE_TYPE_TIMER, 0, std::move(fired)) {
    set(std::nullopt);
    dispatch_resume(source());
  }

  void set(std::optional<Seconds> fromNow) {
    constexpr uint64_t tolerance = 50 * NSEC_PER_MSEC;
    dispatch_time_t start = DISPATCH_TIME_FOREVER;
    if (fromNow) {
      const Seconds bounded = *fromNow > Seconds(0) ? std::min(*fromNow, longestTimer) : Seconds(0);
      start =
          dispatch_time(DISPATCH_TIME_NOW, static_cast<int64_t>(bounded.count() * NSEC_PER_SEC));
    }
    dispatch_source_set_timer(source(), start, DISPATCH_TIME_FOREVER, tolerance);
  }
};

// Which signals have come since their handlers were installed.
std::array<std::atomic<bool>, NSIG> arrived;
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler writes it");

/// Turns a signal into an event, and keeps it from ending the process: by a handler, as children
/// would inherit that it is ignored. The system watches for signals only from some time after it
/// was told to: what the handler saw until then is an event as well.
class Signal : public MainQueueSource {
 public:
  Signal(int number, std::function<void()> received)
      : MainQueueSource(DISPATCH_SOURCE_TYPE_SIGNAL, static_cast<uintptr_t>(number), received),
        number_(number) {
    std::atomic<bool>& early = arrived.at(static_cast<std::size_t>(number));
    early = false;
    dispatch_source_set_registration_handler(source(), ^{
      if (early) {
        received();
      }
    });
    struct sigaction action = {};
    action.sa_handler = [](int caught) { arrived[static_cast<std::size_t>(caught)] = true; };
    action.sa_flags = SA_RESTART;
    sigaction(number, &action, &before_);
    dispatch_resume(source());
  }

  Signal(const Signal&) = delete;
  Signal& operator=(const Signal&) = delete;

  ~Signal() { sigaction(number_, &before_, nullptr); }

 private:
  int number_;
  struct sigaction before_ = {};
};

}  // namespace

class MacDaemonLoop::Parts {
 public:
  explicit Parts(std::shared_ptr<const CodeSigning> codeSigning)
      : codeSigning_(std::move(codeSigning)) {}

  void serve(NODOHelperXPCProtocol& service) {
    listener_ = std::make_unique<XPCHelperListener>(
        std::string(NODOServiceConstants::helperMachServiceName), service, codeSigning_, stderr);
  }

  void setTimer(std::optional<Seconds> fromNow) { timer_.set(fromNow); }

  void announceChange() {
    if (const auto delay = pace_.delay(awakeTime())) {
      announcement_.set(delay);
    }
  }

  void run(const DaemonHandlers& handlers) {
    handlers_ = &handlers;
    ended_ = false;
    CFRunLoopRun();
    handlers_ = nullptr;
    if (failure_) {
      std::rethrow_exception(std::exchange(failure_, nullptr));
    }
    if (!ended_) {
      throw std::runtime_error("the main run loop ended by itself");
    }
  }

 private:
  /// Does `work` with the handlers. What it throws must not pass through the system's frames.
  template <class Work>
  void handle(const Work& work) {
    if (handlers_ == nullptr || ended_) {
      return;
    }
    @autoreleasepool {
      try {
        work(*handlers_);
      } catch (...) {
        failure_ = std::current_exception();
        end();
      }
    }
  }

  void terminate() {
    handle([this](const DaemonHandlers& handlers) {
      handlers.terminate();
      end();
      tellOfChange();  // the system does not tell that a program has ended
    });
  }

  void tellOfChange() {
    pace_.made(awakeTime());
    notify_post(changedNotification);
  }

  void end() {
    ended_ = true;
    // Once stopped, the run loop still does all that is queued by now. A request among that must
    // not take the lock that was just released.
    listener_.reset();
    CFRunLoopStop(CFRunLoopGetMain());
  }

  void machineChanged(News news) {
    if (burst_.add(news)) {
      settled_.set(NewsBurst::settleTime);
    }
  }

  void reportChanges() {
    const std::vector<News> news = burst_.take();
    handle([&news](const DaemonHandlers& handlers) { handlers.machineChanged(news); });
  }

  std::shared_ptr<const CodeSigning> codeSigning_;
  const DaemonHandlers* handlers_ = nullptr;
  bool ended_ = false;
  std::exception_ptr failure_;
  NewsBurst burst_;
  Timer timer_{[this] { handle([](const DaemonHandlers& handlers) { handlers.timerFired(); }); }};
  AnnouncementPace pace_;
  Timer announcement_{[this] { tellOfChange(); }};
  Timer settled_{[this] { reportChanges(); }};
  Signal terminated_{SIGTERM, [this] { terminate(); }};
  Signal interrupted_{SIGINT, [this] { terminate(); }};
  Signal hungUp_{SIGHUP,
                 [this] { handle([](const DaemonHandlers& handlers) { handlers.hungUp(); }); }};
  MachineNews news_{[this](News news) { machineChanged(news); }};
  std::unique_ptr<XPCHelperListener> listener_;
};

MacDaemonLoop::MacDaemonLoop(std::shared_ptr<const CodeSigning> codeSigning)
    : parts_(std::make_unique<Parts>(std::move(codeSigning))) {}

MacDaemonLoop::~MacDaemonLoop() = default;

void MacDaemonLoop::serve(NODOHelperXPCProtocol& service) { parts_->serve(service); }

void MacDaemonLoop::setTimer(std::optional<Seconds> fromNow) { parts_->setTimer(fromNow); }

void MacDaemonLoop::afterPass(bool /*lockHeld*/, const std::optional<SystemSnapshot>& /*seen*/) {}

void MacDaemonLoop::announceChange() { parts_->announceChange(); }

void MacDaemonLoop::run(const DaemonHandlers& handlers) { parts_->run(handlers); }

}  // namespace nodo
