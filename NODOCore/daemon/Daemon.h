#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/daemon/DaemonLoop.h>
#include <NODOCore/daemon/LockKeeper.h>
#include <NODOCore/helper/NODOHelperXPCProtocol.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace nodo {

/// The daemon: answers requests, and runs a pass whenever one is due.
///
/// A pass is due at the start, after every request that changes the state, when the machine's news
/// say so, when something can end by itself, and every minute while the lock is held or wanted.
/// Otherwise no timer is set and nothing wakes the process. All on the loop's thread. A failed
/// request is answered with its reason and logged. What is repeated without anybody's will, a pass
/// outside of a request and a request that only looks, is logged once for as long as it fails for
/// the same reason. Anybody may ask for the status as often as they like, so an answer is given
/// again while it is younger than `answerLifetime` and nothing has changed.
class Daemon : public NODOHelperXPCProtocol {
 public:
  static constexpr Seconds answerLifetime{0.1};

  Daemon(LockKeeper& keeper, DaemonLoop& loop, std::function<Date()> now, DaemonLog log,
         Seconds releaseGrace);

  /// Takes the name, runs the first pass and serves until a signal ends it. The lock is released in
  /// the end, also when the loop cannot go on: that error is passed on. Throws what
  /// DaemonLoop::serve does before anything was touched.
  void run();

  void perform(HelperRequest request, HelperReply reply) override;

 private:
  struct StatusAnswer {
    Date madeAt;
    std::string text;
  };

  void passByItself(const std::string& occasion);
  NODOHelperCommandResponse answer(const HelperRequest& request, Date now);
  std::string statusText();
  void logOnce(std::string& last, const std::string& what, const std::string& reason);
  void schedule();

  LockKeeper& keeper_;
  DaemonLoop& loop_;
  std::function<Date()> now_;
  DaemonLog log_;
  Seconds releaseGrace_;
  // Each empty after a success. Apart, for a look may succeed all the time that passes fail.
  std::string lastPassFailure_;
  std::string lastLookFailure_;
  std::optional<StatusAnswer> lastStatus_;  // absent: something has changed since
};

}  // namespace nodo
