#pragma once

#include <NODOCore/base/System.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace nodo::test {

/// The Mac that the adapters run on: its main run loop and queue, its clock, its signals and its
/// news. What is here stands behind the C functions in `fakes`. One for the process, to be `reset`
/// before each test. For the main thread only, but for `post`.
class FakeMac {
 public:
  using Work = std::function<void()>;
  using Callback = std::function<void(std::uint32_t message, void* argument)>;

  static FakeMac& instance();

  void reset();

  // ---- knobs

  bool offersPowerNews = true;
  bool offersLidService = true;
  bool offersLidNews = true;
  bool offersSleepNews = true;
  bool offersPathMonitor = true;
  bool offersSources = true;
  bool offersNotifications = true;
  bool runLoopEndsByItself = false;
  long thermalState = 0;  ///< as the system counts: 0 nominal to 3 critical
  bool isInLowPowerMode = false;
  bool wasThermalStateRead = false;

  // ---- the main run loop

  /// Done on the main thread as soon as the run loop has nothing else to do, one at a time.
  void whenIdle(Work work) { idleWork_.push_back(std::move(work)); }

  /// Done by the run loop. Safe from any thread.
  void post(Work work);

  /// Runs until `stop`, and does what was posted by then, as emptying the main queue is one step of
  /// the run loop. Stops the process when nothing happens for a long time.
  void run();

  void stop() { stopped_ = true; }

  // ---- the clock

  std::int64_t nanosecondsNow() const { return now_; }

  /// Time passes, in which the machine is awake. Asleep, its timers stand still.
  void pass(double seconds);

  // ---- sources of events on the main queue

  struct Source {
    bool isTimer = false;
    int signal = 0;
    bool isResumed = false;
    bool isRegistered = false;
    std::int64_t due = never;
    Work handler;
    Work registered;
  };

  static constexpr std::int64_t never = INT64_MAX;

  void addSource(const void* key, const Source& source) { sources_[key] = source; }

  Source& source(const void* key) { return sources_.at(key); }

  /// As on a Mac, the source sees what it waits for only once the main queue got to that.
  void resume(const void* key);

  void removeSource(const void* key) { sources_.erase(key); }

  std::size_t sources() const { return sources_.size(); }

  /// Sends the signal to this process, and tells the sources of it.
  void raise(int number);

  // ---- news

  Work powerSource;                  ///< the callback of the run loop source, once it is added
  Callback lid;                      ///< of the power domain's interest
  Callback sleep;                    ///< of the system's power
  Work path;                         ///< of the path monitor, once it is started
  std::vector<long> allowedChanges;  ///< the power changes that were answered

  /// Posts the system's notifications of its heat and of its low power mode on a thread of its own,
  /// and waits until they were delivered. Of its heat it tells nobody who has not read that.
  void tellThermalState();
  void tellPowerState();

  // ---- notifications of programs to each other

  /// Gives what is read by whoever listens, and a handle to close.
  std::uint32_t listen(const std::string& name, int& descriptor);
  void notify(const std::string& name);

  // ---- what is in use

  std::uint32_t open(const std::string& what);
  bool close(std::uint32_t handle);

  /// What was opened and not closed.
  std::multiset<std::string> openHandles() const;

 private:
  bool nextWork(Work& work);
  bool nextPosted(Work& work);

  std::mutex mutex_;
  std::condition_variable posted_;
  std::deque<Work> work_;
  std::deque<Work> idleWork_;
  bool stopped_ = false;
  std::int64_t now_ = 0;
  std::map<const void*, Source> sources_;
  std::uint32_t lastHandle_ = 0;
  std::map<std::uint32_t, std::string> handles_;

  struct Listener {
    std::string name;
    Pipe pipe;
  };

  std::map<std::uint32_t, Listener> listeners_;
};

}  // namespace nodo::test
