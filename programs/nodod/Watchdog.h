#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/base/System.h>
#include <NODOCore/daemon/DaemonLoop.h>

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

namespace nodo::nodod {

/// Calls for an end when too much time goes by without a proof of life, on a thread of its own.
///
/// Time in which the machine sleeps does not count. While nothing is watched the thread sleeps
/// without a single wake-up. To be used from one thread.
class Watchdog {
 public:
  using Clock = std::function<Seconds()>;

  /// `end` is called on the watchdog's own thread, at most once. `clock` is called there too, and
  /// tells the time awake.
  Watchdog(Seconds limit, std::function<void()> end, Clock clock = awakeTime);

  Watchdog(const Watchdog&) = delete;
  Watchdog& operator=(const Watchdog&) = delete;

  ~Watchdog();

  /// A proof of life; the next one is due within the limit where `isWatched`, else never.
  void prove(bool isWatched);

 private:
  void watch();
  std::optional<Seconds> timeLeft();

  Seconds limit_;
  std::function<void()> end_;
  Clock clock_;
  Pipe changes_;  // a byte each time that watching begins, closed at the end
  std::mutex mutex_;
  std::optional<Seconds> provenAt_;  // absent: nothing is watched
  std::thread thread_;
};

/// A loop whose process ends when it hangs while the lock is on: for a lock that outlives the
/// process, where no service manager looks after that. Whoever starts the daemon again has a lock
/// that can be released.
class WatchedLoop : public DaemonLoop {
 public:
  /// Three of the daemon's polls, each of which ends in a proof of life.
  static constexpr Seconds limit{180};

  explicit WatchedLoop(std::unique_ptr<DaemonLoop> loop);

  /// Watches until the first pass has told what the lock is: it may be one of an earlier process.
  void serve(NODOHelperXPCProtocol& service) override;

  void setTimer(std::optional<Seconds> fromNow) override { loop_->setTimer(fromNow); }

  void afterPass(bool lockHeld, const std::optional<SystemSnapshot>& seen) override;

  void announceChange() override { loop_->announceChange(); }

  void run(const DaemonHandlers& handlers) override { loop_->run(handlers); }

 private:
  std::unique_ptr<DaemonLoop> loop_;
  Watchdog watchdog_;
};

}  // namespace nodo::nodod
