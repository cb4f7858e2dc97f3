#include <NODOCore/control/NODOController.h>
#include <NODOCore/control/PowerDecision.h>

#include <algorithm>
#include <string>
#include <utility>

namespace nodo {

namespace {

// Whether nodo was ever in use here, so that a lock which it does not remember may still be its
// own.
bool showsTraceOfUse(const NODOState& state) {
  return state.manualUntil || state.lastActivationReason || state.lastRequester ||
         !state.recentRequesters.empty() || !state.triggerHistory.empty() ||
         !state.triggerActivityBuckets.empty();
}

bool isReleaseDue(const NODOState& state, std::optional<bool> liveSleepDisabled) {
  return state.ownsSleepDisable || (liveSleepDisabled == true && showsTraceOfUse(state));
}

// The detail of an audit's reason. An enabling audit goes through the same order: a reason is there
// then, so the rest only matters for releases.
std::string auditDetail(const PowerDecision& decision, const NODOState& state) {
  if (!decision.reasons.empty()) {
    return decision.reasons.front();
  }
  if (state.lastStopReason) {
    return *state.lastStopReason;
  }
  return decision.stopReason.value_or(reason::unknown);
}

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) {
    text += (text.empty() ? "" : ",") + word;
  }
  return text;
}

void expireTimer(NODOState& state, Date now) {
  if (state.manualUntil && *state.manualUntil <= now) {
    state.manualUntil.reset();
    state.lastStopReason = reason::manualExpired;
  }
}

PowerOperationResult takeLock(NODOState& state, PowerManaging& powerManager,
                              const PowerDecision& decision, Date now) {
  const std::string why = reason::enablePrefix + auditDetail(decision, state);
  powerManager.announce(why);
  PowerOperationResult result = powerManager.setSleepDisabled(true);
  state.recordPowerOperation(result, now, why, maxPowerOperationHistory);
  if (result.succeeded()) {
    state.ownsSleepDisable = true;
    state.lastActivationReason = joined(decision.reasons);
    state.lastStopReason.reset();
  }
  return result;
}

PowerOperationResult releaseLock(NODOState& state, PowerManaging& powerManager,
                                 const PowerDecision& decision, Date now) {
  const std::string why = reason::releasePrefix + auditDetail(decision, state);
  powerManager.announce(why);
  PowerOperationResult result = powerManager.setSleepDisabled(false);
  state.recordPowerOperation(result, now, why, maxPowerOperationHistory);
  if (result.succeeded()) {
    state.ownsSleepDisable = false;
    if (state.lastStopReason != reason::manualExpired) {
      state.lastStopReason = decision.stopReason;
    }
  }
  return result;
}

}  // namespace

DaemonRunReport NODOController::reconcile(PowerManaging& powerManager,
                                          std::optional<bool> liveSleepDisabled, Date now) const {
  const NODOState loaded = store.load();
  std::vector<AgentProcess> agents = detector.detect(*processListing);
  const SystemSnapshot snapshot = snapshotProvider->snapshot(now);

  NODOState state = loaded;
  state.syncSnapshotTracking(snapshot);
  expireTimer(state, now);
  const PowerDecision decision = decisionEngine.evaluate(state, agents, snapshot);

  DaemonRunReport pass;
  pass.generatedAt = now;
  bool isSleepDue = false;
  if (decision.shouldPreventSleep) {
    if (!state.ownsSleepDisable) {
      pass.operation = takeLock(state, powerManager, decision, now);
    }
  } else if (isReleaseDue(state, liveSleepDisabled)) {
    pass.operation = releaseLock(state, powerManager, decision, now);
    isSleepDue = pass.operation->succeeded() && releaseNeedsSleepRequest(snapshot);
  }
  if (pass.operation) {
    pass.operations.push_back(*pass.operation);
  }

  pass.stateChanged = state != loaded;
  if (pass.stateChanged) {
    state.updatedAt = now;
    store.save(state);
  }
  // Only now: the machine may be asleep before the request returns, and the release must not be
  // lost.
  if (isSleepDue) {
    powerManager.announce(reason::closedLidRelease);
    pass.operations.push_back(powerManager.requestSleepNow());
    state = store.load();
    state.recordPowerOperation(pass.operations.back(), now, reason::closedLidRelease,
                               maxPowerOperationHistory);
    state.updatedAt = now;
    store.save(state);
  }
  pass.status = report(std::move(state), std::move(agents), snapshot);
  return pass;
}

DaemonRunReport NODOController::repair(PowerManaging& powerManager,
                                       std::optional<bool> liveSleepDisabled, Date now) const {
  const NODOState loaded = store.load();
  std::optional<PowerOperationResult> release;
  if (loaded.ownsSleepDisable || liveSleepDisabled == true) {
    powerManager.announce(reason::repair);
    release = powerManager.setSleepDisabled(false);
  }
  reset(now);
  // The lock has just been released: what was read before is no longer to be trusted.
  DaemonRunReport pass = reconcile(powerManager, std::nullopt, now);
  if (release) {
    pass.operations.insert(pass.operations.begin(), *release);
    pass.operation = release;
  }
  pass.stateChanged = pass.stateChanged || pass.status.state != loaded;
  return pass;
}

bool releaseNeedsSleepRequest(const SystemSnapshot& snapshot) {
  return snapshot.lidClosed == true && snapshot.powerSource == PowerSource::battery;
}

ReconcileSchedule ReconcileSchedule::sleepReleaseDeadline(const StatusReport& report,
                                                          double graceSeconds) {
  if (!report.state.ownsSleepDisable && !report.decision.shouldPreventSleep) {
    return {};
  }
  std::optional<Date> earliest;
  if (report.state.manualUntil) {
    earliest = std::max(*report.state.manualUntil, report.generatedAt);
  }
  for (const auto& left : {report.noRouteGraceRemainingSeconds, report.heatGraceRemainingSeconds}) {
    if (left) {
      const Date graceEnd = report.generatedAt + Seconds(static_cast<double>(*left));
      earliest = earliest ? std::min(*earliest, graceEnd) : graceEnd;
    }
  }
  return {earliest.value_or(report.generatedAt) + Seconds(graceSeconds)};
}

}  // namespace nodo
