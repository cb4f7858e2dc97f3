#include <NODOCore/base/Errors.h>
#include <NODOCore/control/NODOController.h>
#include <NODOCore/control/PowerDecision.h>

#include <string>
#include <utility>

namespace nodo {
namespace {

constexpr std::size_t maxRecentRequesters = 6;
constexpr std::size_t maxTriggerHistory = 500;

}  // namespace

bool setTimer(NODOState& state, std::int64_t minutes, bool extendOnly,
              const std::optional<ActivationRequester>& requester, Date now) {
  const Date end = now + Seconds(static_cast<double>(minutes) * 60);
  const bool keepsLaterEnd = extendOnly && state.manualUntil && *state.manualUntil > end;
  if (!keepsLaterEnd) {
    state.manualUntil = end;
    state.lastActivationReason = extendOnly ? reason::manualLease : reason::manualTimer;
    state.lastStopReason.reset();
    state.lastRequester.reset();
  } else if (!requester) {
    return false;
  }
  if (requester) {
    state.recordRequester(*requester, now, maxRecentRequesters, maxTriggerHistory);
  }
  state.updatedAt = now;
  return true;
}

void endTimer(NODOState& state, const std::string& stopReason, Date now) {
  state.manualUntil.reset();
  state.noRouteUnavailableSince.reset();
  state.seriousHeatSince.reset();
  state.lidOpenedAt.reset();
  state.lastLidClosed.reset();
  state.lastStopReason = stopReason;
  state.updatedAt = now;
}

void resetState(NODOState& state, Date now) {
  endTimer(state, reason::repair, now);
  state.ownsSleepDisable = false;
}

StatusReport NODOController::status(Date now) const {
  return report(store.load(), now);
}

void NODOController::requireDuration(std::int64_t minutes) const {
  const std::int64_t maximum = decisionEngine.policy.maxManualDurationMinutes;
  if (minutes < 1) {
    throw NODOError::invalidDuration("minutes must be greater than 0");
  }
  if (minutes > maximum) {
    throw NODOError::invalidDuration("minutes must be <= " + std::to_string(maximum));
  }
}

StatusReport NODOController::enableManual(
    std::int64_t minutes, Date now, bool extendOnly,
    const std::optional<ActivationRequester>& requester) const {
  requireDuration(minutes);
  NODOState state = store.load();
  if (setTimer(state, minutes, extendOnly, requester, now)) {
    store.save(state);
  }
  return report(state, now);
}

StatusReport NODOController::stop(Date now) const {
  NODOState state = store.load();
  endTimer(state, reason::userStop, now);
  store.save(state);
  return report(state, now);
}

StatusReport NODOController::repairState(Date now) const {
  return report(reset(now), now);
}

NODOState NODOController::reset(Date now) const {
  NODOState state = store.load();
  resetState(state, now);
  store.save(state);
  return state;
}

StatusReport NODOController::report(const NODOState& state, Date now) const {
  std::vector<AgentProcess> agents = detector.detect(*processListing);
  const SystemSnapshot snapshot = snapshotProvider->snapshot(now);
  NODOState tracked = state;
  tracked.syncSnapshotTracking(snapshot);
  return report(std::move(tracked), std::move(agents), snapshot);
}

StatusReport NODOController::report(NODOState state, std::vector<AgentProcess> agents,
                                    const SystemSnapshot& snapshot) const {
  const Date now = snapshot.now;
  const auto manualRemaining = state.manualRemainingSeconds(now);
  const auto graceRemaining =
      state.noRouteGraceRemainingSeconds(now, decisionEngine.policy.noRouteGraceSeconds);
  const auto heatGraceRemaining =
      decisionEngine.policy.stopAtThermalPressure
          ? state.heatGraceRemainingSeconds(snapshot, SafetyPolicy::seriousHeatGraceSeconds)
          : std::nullopt;
  PowerDecision decision = decisionEngine.evaluate(state, agents, snapshot);
  return {.generatedAt = now,
          .state = std::move(state),
          .snapshot = snapshot,
          .agents = std::move(agents),
          .decision = std::move(decision),
          .manualRemainingSeconds = manualRemaining,
          .noRouteGraceRemainingSeconds = graceRemaining,
          .heatGraceRemainingSeconds = heatGraceRemaining};
}

}  // namespace nodo
