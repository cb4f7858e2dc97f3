#include <programs/nodod/Watchdog.h>

#include <condition_variable>
#include <csignal>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>

#include <gtest/gtest.h>

#include <tests/daemon/DaemonFixture.h>

namespace nodo::nodod {
namespace {

// A clock that stands until it is set, and knows how often it was looked at.
class TestClock {
 public:
  Seconds now() {
    const std::lock_guard guard(mutex_);
    ++looks_;
    looked_.notify_all();
    return now_;
  }

  void set(double seconds) {
    const std::lock_guard guard(mutex_);
    now_ = Seconds(seconds);
  }

  /// Waits until the watchdog has seen what it is now.
  void awaitLooks() {
    std::unique_lock guard(mutex_);
    const int before = looks_;
    EXPECT_TRUE(looked_.wait_for(guard, Seconds(20), [&] { return looks_ >= before + 3; }));
  }

 private:
  std::mutex mutex_;
  std::condition_variable looked_;
  int looks_ = 0;
  Seconds now_{0};
};

class Ending {
 public:
  void call() {
    const std::lock_guard guard(mutex_);
    ++calls_;
    called_.notify_all();
  }

  int calls() {
    const std::lock_guard guard(mutex_);
    return calls_;
  }

  void await() {
    std::unique_lock guard(mutex_);
    EXPECT_TRUE(called_.wait_for(guard, Seconds(20), [&] { return calls_ > 0; }));
  }

 private:
  std::mutex mutex_;
  std::condition_variable called_;
  int calls_ = 0;
};

class WatchdogTest : public ::testing::Test {
 protected:
  TestClock clock;
  Ending ending;
  static constexpr Seconds limit{0.05};
  Watchdog watchdog{limit, [this] { ending.call(); }, [this] { return clock.now(); }};
};

TEST_F(WatchdogTest, WithoutAProofOfLifeItCallsForTheEndOnce) {
  watchdog.prove(true);
  clock.set(0.06);
  ending.await();
  EXPECT_EQ(ending.calls(), 1);
}

TEST_F(WatchdogTest, TimeThatTheClockDoesNotCountIsNoTime) {
  watchdog.prove(true);
  clock.awaitLooks();
  EXPECT_EQ(ending.calls(), 0) << "the machine slept";
  clock.set(0.06);
  ending.await();
}

TEST_F(WatchdogTest, EachProofOfLifeCounts) {
  watchdog.prove(true);
  clock.set(0.04);
  watchdog.prove(true);
  clock.set(0.08);
  clock.awaitLooks();
  EXPECT_EQ(ending.calls(), 0);
  clock.set(0.1);
  ending.await();
}

TEST(WatchdogLifeTest, NothingIsWatchedUntilItIsSaid) {
  int ends = 0;
  for (const bool isWatched : {false, true}) {
    // Without any time an end is called for as soon as something is watched.
    Watchdog watchdog(Seconds(0), [&ends] { ++ends; });
    watchdog.prove(isWatched);
    watchdog.prove(false);
    watchdog.prove(isWatched);
  }
  EXPECT_EQ(ends, 1);
}

TEST(WatchdogLifeTest, SignalsAreLeftToTheLoop) {
  sigset_t blocked;
  sigset_t before;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGUSR1);
  const Watchdog watchdog(Seconds(60), [] {});
  ASSERT_EQ(::pthread_sigmask(SIG_BLOCK, &blocked, &before), 0);
  ::kill(::getpid(), SIGUSR1);  // ends this process if the watchdog's thread takes it
  int received = 0;
  EXPECT_EQ(::sigwait(&blocked, &received), 0);
  EXPECT_EQ(received, SIGUSR1);
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST(WatchedLoopTest, EverythingIsHandedOn) {
  auto inner = std::make_unique<FakeLoop>();
  FakeLoop& loop = *inner;
  WatchedLoop watched(std::move(inner));
  watched.setTimer(Seconds(60));
  EXPECT_EQ(loop.timer, Seconds(60));
  watched.afterPass(true, SystemSnapshot{.batteryPercent = 7});
  EXPECT_TRUE(loop.isLockHeld);
  EXPECT_EQ(loop.seen, SystemSnapshot{.batteryPercent = 7});
  bool isEnded = false;
  loop.onRun = [&loop] { loop.handlers.terminate(); };
  watched.run({.machineChanged = nullptr, .timerFired = nullptr, .terminate = [&isEnded] {
                 isEnded = true;
               }});
  EXPECT_TRUE(isEnded);
}

}  // namespace
}  // namespace nodo::nodod
