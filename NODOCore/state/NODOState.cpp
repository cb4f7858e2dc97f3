#include <NODOCore/base/Errors.h>
#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/sensing/SystemSnapshot.h>
#include <NODOCore/state/NODOState.h>

#include <algorithm>

namespace nodo {

namespace {

std::int64_t remainingUntil(Date end, Date at) {
  return std::max<std::int64_t>(0, wholeSeconds(end - at));
}

Date afterGrace(Date start, std::int64_t graceSeconds) {
  return start + Seconds(static_cast<double>(graceSeconds));
}

// What is left at `at` of a grace that began with `since`.
std::int64_t graceLeft(Date since, std::int64_t graceSeconds, Date at) {
  return std::max<std::int64_t>(0, checkedDifference(graceSeconds, wholeSeconds(at - since)));
}

// Notes when it was first so, and forgets that once it no longer is.
void track(std::optional<Date>& since, bool isSo, Date now) {
  if (!isSo) {
    since.reset();
  } else if (!since) {
    since = now;
  }
}

// A machine with its lid open stands where somebody sees it and air reaches it.
bool isHeatTrapped(const SystemSnapshot& snapshot) {
  return snapshot.thermalPressure >= ThermalPressure::serious && snapshot.lidClosed == true;
}

}  // namespace

NODOState NODOState::fresh(Date now) {
  NODOState state;
  state.createdAt = now;
  state.updatedAt = now;
  return state;
}

std::optional<std::int64_t> NODOState::manualRemainingSeconds(Date at) const {
  if (!manualUntil) {
    return std::nullopt;
  }
  return remainingUntil(*manualUntil, at);
}

bool NODOState::manualIsActive(Date at) const {
  return manualRemainingSeconds(at).value_or(0) > 0;
}

std::optional<std::int64_t> NODOState::noRouteGraceRemainingSeconds(
    Date at, std::int64_t graceSeconds) const {
  if (!manualIsActive(at) || !noRouteUnavailableSince) {
    return std::nullopt;
  }
  return graceLeft(*noRouteUnavailableSince, graceSeconds, at);
}

std::optional<std::int64_t> NODOState::heatGraceRemainingSeconds(const SystemSnapshot& snapshot,
                                                                 std::int64_t graceSeconds) const {
  if (!manualIsActive(snapshot.now) || !isHeatTrapped(snapshot) || !seriousHeatSince) {
    return std::nullopt;
  }
  return graceLeft(*seriousHeatSince, graceSeconds, snapshot.now);
}

std::optional<std::int64_t> NODOState::lidOpenGraceRemainingSeconds(
    Date at, std::int64_t graceSeconds) const {
  if (!lidOpenedAt) {
    return std::nullopt;
  }
  return remainingUntil(afterGrace(*lidOpenedAt, graceSeconds), at);
}

bool NODOState::isWithinLidOpenGrace(Date at, std::int64_t graceSeconds) const {
  return lidOpenGraceRemainingSeconds(at, graceSeconds).value_or(0) > 0;
}

void NODOState::syncLidOpenGrace(const SystemSnapshot& snapshot) {
  if (snapshot.lidClosed == true) {
    lidOpenedAt.reset();
  } else if (snapshot.lidClosed == false && lastLidClosed == true) {
    lidOpenedAt = snapshot.now;
  }
  lastLidClosed = snapshot.lidClosed;
}

void NODOState::updateNoRouteTracking(const SystemSnapshot& snapshot) {
  track(noRouteUnavailableSince,
        manualIsActive(snapshot.now) && snapshot.defaultRouteAvailable == false, snapshot.now);
}

void NODOState::updateHeatTracking(const SystemSnapshot& snapshot) {
  track(seriousHeatSince, manualIsActive(snapshot.now) && isHeatTrapped(snapshot), snapshot.now);
}

void NODOState::syncSnapshotTracking(const SystemSnapshot& snapshot) {
  syncLidOpenGrace(snapshot);
  updateNoRouteTracking(snapshot);
  updateHeatTracking(snapshot);
}

// Fills in what an older file does not hold from what it does.
static void deriveMissing(const ObjectDecoder& fields, NODOState& state) {
  if (!fields.has("recentRequesters") && state.lastRequester) {
    state.recentRequesters = {*state.lastRequester};
  }
  if (state.triggerHistory.empty()) {
    state.triggerHistory = state.recentRequesters;
  }
  state.triggerActivityBuckets =
      state.triggerActivityBuckets.empty()
          ? NODOState::makeTriggerActivityBuckets(state.triggerHistory, std::nullopt)
          : NODOState::normalisedBuckets(state.triggerActivityBuckets);
  if (!fields.has("createdAt")) {
    state.createdAt = currentDate();
  }
  if (!fields.has("updatedAt")) {
    state.updatedAt = state.createdAt;
  }
}

NODO_JSON_RECORD(NODOState, fields, state) {
  fields.optional("manualUntil", state.manualUntil);
  fields.defaulted("ownsSleepDisable", state.ownsSleepDisable);
  fields.optional("lastActivationReason", state.lastActivationReason);
  fields.optional("lastStopReason", state.lastStopReason);
  fields.optional("lastRequester", state.lastRequester);
  fields.defaulted("recentRequesters", state.recentRequesters);
  fields.defaulted("triggerHistory", state.triggerHistory);
  fields.defaulted("triggerActivityBuckets", state.triggerActivityBuckets);
  fields.optional("lastPowerOperation", state.lastPowerOperation);
  fields.defaulted("powerOperationHistory", state.powerOperationHistory);
  fields.optional("noRouteUnavailableSince", state.noRouteUnavailableSince);
  fields.optional("lidOpenedAt", state.lidOpenedAt);
  fields.optional("lastLidClosed", state.lastLidClosed);
  fields.defaulted("createdAt", state.createdAt);
  fields.defaulted("updatedAt", state.updatedAt);
  fields.optional("seriousHeatSince", state.seriousHeatSince);
}

}  // namespace nodo
