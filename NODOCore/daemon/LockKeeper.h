#pragma once

#include <NODOCore/control/DaemonSettings.h>
#include <NODOCore/control/NODOController.h>
#include <NODOCore/control/Reports.h>
#include <NODOCore/daemon/LockLife.h>
#include <NODOCore/daemon/SleepLock.h>
#include <NODOCore/daemon/ToolWatch.h>
#include <NODOCore/state/NODOState.h>

#include <cstdint>
#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace nodo {

/// Keeps the sleep lock in line with the state, whatever fails.
///
/// The shell around LockLife: it tells that what happens, and performs what follows on the
/// controller, the lock, the state file and the log. Each member below is one event with all that
/// comes of it. They take the time and are called from one thread. Those that throw pass on the
/// error of the step that failed, after everything else that had to be done.
class LockKeeper {
 public:
  /// `controller` decides by the settings' policy, whatever its own.
  LockKeeper(NODOController controller, SleepLock lock, DaemonLog log,
             const DaemonSettings& settings, const Moment& now);

  /// Releases a lock that an earlier process left behind, unless a timer still runs for it. To be
  /// called before anything that may fail.
  void releaseLeftBehind(const Moment& now) noexcept;

  /// The status as it is, with what the state file has yet to be told. Changes nothing.
  StatusReport status(const Moment& now) const;

  /// A look at everything, after which the lock follows the decision: because the time has come, or
  /// the machine has news; `resumed` from sleep among them.
  void wake(const Moment& now, bool resumed);

  /// The same because somebody asks for it.
  DaemonRunReport pass(const Moment& now);

  /// Sets the timer, then a pass. When only the pass fails, or the system refuses the lock, that is
  /// an error, too: the timer is set and the next pass tries again, but who asked must not believe
  /// that the machine stays awake. A timer whose end could not be written yet is ended first, so
  /// that no extension keeps it.
  StatusReport enableManual(std::int64_t minutes, bool extendOnly,
                            const std::optional<ActivationRequester>& requester, const Moment& now);

  /// Ends the timer, then a pass. When that fails the lock is released all the same, as that is
  /// what was asked for, and the timer is ended by the first pass that can. A lock that stays on is
  /// an error.
  StatusReport stop(const Moment& now);

  /// Releases the lock, resets the state and reconciles. When that fails the lock is released all
  /// the same, and the timer is ended by the first pass that can. A lock that stays on is an error.
  StatusReport repair(const Moment& now);

  /// Releases the lock because this process ends, and keeps the timer for the next one. Returns
  /// whether nothing is left that somebody would have to look after. What cannot be written is
  /// logged.
  bool shutDown(const Moment& now) noexcept;

  /// How long from `now` until `wake` is due although nothing happens; absent when nothing can
  /// change by itself.
  std::optional<Seconds> nextWake(const Moment& now) const;

  /// Whether nodo holds the lock, as far as is known.
  bool isHeld() const { return life_.holdsLock(); }

  /// From the next event on.
  void use(const DaemonSettings& settings);

  bool lockDiesWithProcess() const { return lock_.diesWithProcess(); }

  /// The machine as the last pass found it; absent when that failed.
  std::optional<SystemSnapshot> seen() const;

  /// Whether what a status would say has changed since this was asked last, the passing of time
  /// aside.
  bool takeChange() { return std::exchange(isChanged_, false); }

 private:
  /// What a request asks of the state, beyond a pass. Throws to refuse.
  using Change = std::function<void(NODOState& state)>;

  void happen(Occasion occasion, const Moment& now, const Change& change = nullptr);
  void follow(const LockEvent& event);
  DaemonRunReport takeRun();

  // The effects.
  void perform(const AmendState& effect);
  void perform(const MakePass& effect);
  void perform(const ReleaseLock& effect);
  void perform(const AskForSleep& effect);
  void perform(const ForgetMark& effect);
  void perform(const Say& effect);

  std::optional<Date> amend(const StateAmendment& amendment);
  NODOState amended(NODOState state, const StateAmendment& amendment, Date now) const;
  void noteChanges(const DaemonRunReport& run);
  bool extendForTool(NODOState& state);
  DaemonRunReport makePass();
  void setTerms(std::optional<Date> timerEnd);
  void noteLid(std::optional<bool> closed, bool wasHeld);
  PassVerdict verdictOf(const DaemonRunReport& run) const;
  std::optional<StateFacts> storedFacts() const noexcept;
  void logOperations(const std::optional<ActivationRequester>& requester);
  SystemSnapshot lastSnapshot() const;
  LockOperation operate(PowerOperationAction action, const std::string& reason);
  void record(const LockOperation& operation);

  NODOController controller_;
  WatchedLock lock_;
  OperationLog operationLog_;
  DaemonLog log_;
  DaemonSettings settings_;
  LockLife life_;
  ToolWatch tools_;
  SystemSnapshot lastSeen_;  // by the last pass that went through
  std::vector<AgentProcess> lastAgents_;
  PowerDecision lastDecision_;
  std::optional<bool> isLidClosed_;  // as it was seen last; absent: it never was
  bool isChanged_ = false;
  // Of the event under way.
  Moment now_;
  Occasion occasion_ = Occasion::woken;
  Change change_;
  bool isTimerSet_ = false;
  bool isAmended_ = false;
  std::optional<DaemonRunReport> run_;
  std::exception_ptr failure_;
};

}  // namespace nodo
