#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/control/NODOController.h>
#include <NODOCore/control/Reports.h>
#include <NODOCore/daemon/SleepLock.h>
#include <NODOCore/state/NODOState.h>

#include <cstdint>
#include <optional>
#include <string>

namespace nodo {

/// Keeps the sleep lock in line with the state, whatever fails.
///
/// The controller decides and switches; this adds what a process that lives for months needs. Where
/// the system frees a lock with its holder, one of an earlier process, or one that the machine says
/// is gone, is no longer counted as owned, so that the next pass takes it again. A lock that this
/// process took is its own whatever becomes of the state file. And a lock never outlives the reason
/// for it: when passes fail (the state is unreadable, the machine cannot be looked at), nobody
/// would notice the timer's end or an empty battery any more. So a lock that no pass could confirm
/// for `patience` is released, earlier when the timer that was known last has ended, and with the
/// lid closed on battery sleep is asked for. Once passes succeed again they take it again if the
/// timer still runs; a state that cannot be written keeps it off.
///
/// All members take the time and are called from one thread. Those that throw pass on the error of
/// the step that failed, after they have done the above.
class LockKeeper {
 public:
  /// How long a lock may stand while passes fail: long enough for a second and a third attempt.
  static constexpr Seconds patience{120};
  /// How often the lock is looked after while it is held or wanted.
  static constexpr Seconds pollInterval{60};

  LockKeeper(NODOController controller, SleepLock lock, DaemonLog log, Date now);

  /// The status as it is. Changes nothing.
  StatusReport status(Date now) const { return controller_.status(now); }

  /// One pass: the lock follows the decision.
  DaemonRunReport pass(Date now);

  /// Sets the timer, then a pass. When only the pass fails that is an error, too: the timer is set
  /// and the next pass tries again, but who asked must not believe that the machine stays awake. A
  /// timer whose end could not be written yet is ended first, so that no extension keeps it.
  StatusReport enableManual(std::int64_t minutes, bool extendOnly,
                            const std::optional<ActivationRequester>& requester, Date now);

  /// Ends the timer, then a pass. When that fails the lock is released all the same, as that is
  /// what was asked for, and the timer is ended by the first pass that can.
  StatusReport stop(Date now);

  /// Releases the lock, resets the state and reconciles. When that fails the lock is released all
  /// the same, and the timer is ended by the first pass that can.
  StatusReport repair(Date now);

  /// Releases the lock because this process ends, and keeps the timer for the next one. Throws
  /// nothing: what cannot be written is logged.
  void shutDown(Date now) noexcept;

  /// When the next pass is due although nothing happens; absent when nothing can change by itself.
  std::optional<Date> nextPass(Date now, Seconds releaseGrace) const;

  /// Whether the lock is held, as far as is known.
  bool isHeld() const { return lock_.isHeld().value_or(false); }

  /// The machine as the last pass found it; absent when that failed.
  std::optional<SystemSnapshot> seen() const;

  bool lockDiesWithProcess() const { return lock_.diesWithProcess(); }

 private:
  /// A wish to end the timer that the lock has not followed yet.
  enum class TimerEnding { stop, repair };

  /// Why the lock is released outside of a pass.
  enum class ReleaseCause { stop, repair, daemonStopping, unconfirmed };

  /// The timer as the state had it when it was last read.
  struct KnownTimer {
    std::optional<Date> end;  ///< absent: none runs
  };

  static std::string reasonOf(ReleaseCause cause);

  template <class Work>
  auto guarded(Date now, const Work& work);

  // A pass that may fail anywhere.
  DaemonRunReport reconcile(Date now);
  bool endTimerIfPending(Date now);
  bool forgetLostOwnership(std::optional<bool> live, Date now);
  bool isUnknownToState(const DaemonRunReport& run) const;
  void rememberOwnership(Date now);
  void confirm(const DaemonRunReport& run);

  // What has to be done when it did.
  void fail(Date now) noexcept;
  std::optional<NODOState> readableState() const noexcept;
  bool answersForLock(const std::optional<NODOState>& state) const;
  bool mayStand(Date now) const;
  ReleaseCause causeOfFailedPass() const;
  bool release(Date now, ReleaseCause cause) noexcept;
  void sleepIfLidIsClosedOnBattery(Date now);
  SystemSnapshot lastSnapshot(Date now) const;
  LockOperation perform(PowerOperationAction action, const std::string& reason);
  void record(const LockOperation& operation, Date now);

  bool timerIsOver(Date now) const;
  std::optional<Date> nextAttempt(Date now) const;
  std::optional<Date> nextRelease(Date now, Seconds releaseGrace) const;
  Date nextPoll(Date now) const;

  NODOController controller_;
  WatchedLock lock_;
  OperationLog operationLog_;
  Date attemptedAt_;                  // the last pass, or the start
  Date confirmedAt_;                  // the last pass that succeeded, or the start
  std::optional<KnownTimer> timer_;   // absent: the state was never read
  std::optional<StatusReport> last_;  // of the last pass that succeeded
  bool isFailing_ = false;
  bool isEarlyRecheckDone_ = false;
  bool ownershipIsOfEarlierProcess_ = true;
  bool releaseIsUnrecorded_ = false;  // the lock was released, and the state does not know
  std::optional<TimerEnding> pendingEnding_;
};

}  // namespace nodo
