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

  /// `settings` are the keeper's; `readSettings` reads them anew.
  Daemon(LockKeeper& keeper, DaemonLoop& loop, std::function<Moment()> now, DaemonLog log,
         EffectiveSettings settings, std::function<EffectiveSettings()> readSettings);

  /// Takes the name, runs the first pass and serves until a signal ends it. The lock is released in
  /// the end, whatever the end is. Throws what DaemonLoop::serve and DaemonLoop::run do, and
  /// std::runtime_error when the lock may still be on after all: somebody has to start a daemon
  /// again, which then looks after it.
  void run();

  void perform(HelperRequest request, HelperReply reply) override;

  std::optional<SettingsReport> settings() const override { return SettingsReport(settings_); }

 private:
  struct StatusAnswer {
    Seconds madeAt;  // by the machine's clock
    std::string text;
  };

  void wake(const std::string& occasion, bool resumed);
  void hangUp();
  void tellProblems() const;
  void end();
  NODOHelperCommandResponse answer(const HelperRequest& request, const Moment& now);
  std::string statusText();
  void logOnce(std::string& last, const std::string& what, const std::string& reason);
  void announce();
  void schedule();

  LockKeeper& keeper_;
  DaemonLoop& loop_;
  std::function<Moment()> now_;
  DaemonLog log_;
  EffectiveSettings settings_;
  std::function<EffectiveSettings()> readSettings_;
  // Each empty after a success. Apart, for a look may succeed all the time that passes fail.
  std::string lastPassFailure_;
  std::string lastLookFailure_;
  bool mayLockStand_ = false;               // after the end
  std::optional<StatusAnswer> lastStatus_;  // absent: something has changed since
};

}  // namespace nodo
