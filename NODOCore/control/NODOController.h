#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/control/PowerDecision.h>
#include <NODOCore/control/Reports.h>
#include <NODOCore/power/PowerManaging.h>
#include <NODOCore/sensing/AgentDetector.h>
#include <NODOCore/sensing/ProcessListing.h>
#include <NODOCore/sensing/SystemSnapshot.h>
#include <NODOCore/state/StateStore.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace nodo {

/// The one entry point through which programs read or change the keep-awake state.
///
/// Every command takes the time from its caller, loads the state, looks at the machine once and
/// answers with a report. It throws the error of the step that failed: of the state (DecodingError,
/// std::system_error), of the process listing or of the snapshot; what is on disk is then as it
/// was, except where a report fails after its save. Not synchronised: the daemon serves one request
/// after another.
struct NODOController {
  StateStore store;
  AgentDetector detector;
  std::shared_ptr<const ProcessListing> processListing;
  std::shared_ptr<const SystemSnapshotProviding> snapshotProvider;
  PowerDecisionEngine decisionEngine;

  // ---- commands; none of them touches the machine's sleep lock (`reconcile` does)

  /// The state as it is. Writes nothing.
  StatusReport status(Date now) const;

  /// Keeps the machine awake until `minutes` after `now`.
  ///
  /// Without `extendOnly` the timer is set, which may shorten a running one. With it (the form of
  /// the agents' hooks) a later end stays; only the requester is recorded then. Throws
  /// NODOError::invalidDuration below 1 minute and above the policy's maximum, before anything is
  /// read.
  StatusReport enableManual(std::int64_t minutes, Date now, bool extendOnly,
                            const std::optional<ActivationRequester>& requester) const;

  /// Ends the timer and forgets the trackers. The next pass releases the lock.
  StatusReport stop(Date now) const;

  /// Resets the state but for its histories, ownership of the lock included: for a caller that has
  /// released the lock or knows that there is none.
  StatusReport repairState(Date now) const;

  // ---- the daemon's passes

  /// One pass: brings the machine's sleep lock in line with the decision. It switches the lock on
  /// or off, records what was done, and asks for sleep after a release with the lid closed on
  /// battery.
  ///
  /// `liveSleepDisabled` is the lock as the caller read it from the machine, absent when unknown: a
  /// lock that is on without being owned is released only when the state shows that nodo was in
  /// use. An operation that fails (non-zero exit code) or is a dry run is recorded and changes no
  /// ownership, so the next pass tries again. An error of a power call is passed on; nothing of the
  /// pass is saved then, except that a release is saved before sleep is asked for.
  DaemonRunReport reconcile(PowerManaging& powerManager, std::optional<bool> liveSleepDisabled,
                            Date now) const;

  /// Releases the lock if it is owned or on, resets the state and makes a pass.
  DaemonRunReport repair(PowerManaging& powerManager, std::optional<bool> liveSleepDisabled,
                         Date now) const;

  // ---- for who changes the state itself

  /// Throws NODOError::invalidDuration for minutes that no timer may have.
  void requireDuration(std::int64_t minutes) const;

  /// The report of a loaded state: looks at the machine and updates the trackers on a copy.
  StatusReport report(const NODOState& state, Date now) const;

 private:
  // Resets and saves the state, and returns it.
  NODOState reset(Date now) const;
  // The report of a state whose trackers know the snapshot already.
  StatusReport report(NODOState state, std::vector<AgentProcess> agents,
                      const SystemSnapshot& snapshot) const;
};

/// Sets the timer of `state` to end `minutes` after `now`, as `NODOController::enableManual` says,
/// and tells whether that changed anything.
bool setTimer(NODOState& state, std::int64_t minutes, bool extendOnly,
              const std::optional<ActivationRequester>& requester, Date now);

/// Ends the timer of `state` and forgets the trackers.
void endTimer(NODOState& state, const std::string& stopReason, Date now);

/// Resets `state` but for its histories, as `NODOController::repairState` says.
void resetState(NODOState& state, Date now);

/// How many power operations the state's history keeps.
inline constexpr std::size_t maxPowerOperationHistory = 20;

/// Whether a release of the lock has to be followed by a request for sleep. With the lid closed
/// nobody would put the machine to sleep again, and on battery it would run empty in its bag.
bool releaseNeedsSleepRequest(const SystemSnapshot& snapshot);

/// When the daemon has to make a pass although nothing happens.
struct ReconcileSchedule {
  std::optional<Date> deadline;  ///< absent: nothing is pending

  /// Just after the next moment at which a release can fall due: the end of the timer or of
  /// the no-route grace, whichever comes first, plus `graceSeconds`. A lock without either is
  /// looked at again after the grace.
  static ReconcileSchedule sleepReleaseDeadline(const StatusReport& report, double graceSeconds);

  bool operator==(const ReconcileSchedule&) const = default;
};

}  // namespace nodo
