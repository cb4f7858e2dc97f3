#include <programs/nodod/Watchdog.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <utility>

#include <poll.h>
#include <unistd.h>

namespace nodo::nodod {
namespace {

/// Blocks all signals, and thus in threads that are started meanwhile: they are the loop's.
class NoSignals {
 public:
  NoSignals() {
    sigset_t all;
    sigfillset(&all);
    ::pthread_sigmask(SIG_BLOCK, &all, &before_);
  }

  NoSignals(const NoSignals&) = delete;
  NoSignals& operator=(const NoSignals&) = delete;

  ~NoSignals() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

 private:
  sigset_t before_{};
};

[[noreturn]] void endHungProcess() {
  std::fputs("nodod: hangs while the sleep lock is on; ends itself\n", stderr);
  ::_exit(1);
}

}  // namespace

Watchdog::Watchdog(Seconds limit, std::function<void()> end, Clock clock)
    : limit_(limit), end_(std::move(end)), clock_(std::move(clock)), changes_(makePrivatePipe()) {
  const NoSignals noSignals;
  thread_ = std::thread([this] { watch(); });
}

Watchdog::~Watchdog() {
  changes_.writeEnd.reset();
  thread_.join();
}

void Watchdog::prove(bool isWatched) {
  bool begins = false;
  {
    const std::lock_guard guard(mutex_);
    begins = isWatched && !provenAt_;
    provenAt_ = isWatched ? std::optional(clock_()) : std::nullopt;
  }
  if (begins && ::write(changes_.writeEnd.get(), "", 1) < 0) {
    throwErrno("Unable to wake", "the watchdog");
  }
}

// Waits by poll, which no setting of the civil clock disturbs.
void Watchdog::watch() {
  pollfd change{changes_.readEnd.get(), POLLIN, 0};
  for (;;) {
    const std::optional<Seconds> left = timeLeft();
    if (left && *left <= Seconds(0)) {
      end_();
      return;
    }
    const int patience =
        left ? static_cast<int>(std::ceil(std::min(*left, limit_).count() * 1000)) : -1;
    char byte = 0;
    if (::poll(&change, 1, patience) > 0 && ::read(change.fd, &byte, 1) == 0) {
      return;
    }
  }
}

// Until the end; absent while nothing is watched.
std::optional<Seconds> Watchdog::timeLeft() {
  const std::lock_guard guard(mutex_);
  return provenAt_ ? std::optional(*provenAt_ + limit_ - clock_()) : std::nullopt;
}

WatchedLoop::WatchedLoop(std::unique_ptr<DaemonLoop> loop)
    : loop_(std::move(loop)), watchdog_(limit, endHungProcess) {}

void WatchedLoop::serve(NODOHelperXPCProtocol& service) {
  loop_->serve(service);
  watchdog_.prove(true);
}

void WatchedLoop::afterPass(bool lockHeld, const std::optional<SystemSnapshot>& seen) {
  watchdog_.prove(lockHeld);
  loop_->afterPass(lockHeld, seen);
}

}  // namespace nodo::nodod
