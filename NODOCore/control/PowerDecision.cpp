#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/control/PowerDecision.h>

#include <algorithm>

namespace nodo {

NODO_JSON_RECORD(SafetyPolicy, fields, policy) {
  fields.required("minimumBatteryPercent", policy.minimumBatteryPercent);
  fields.required("maxManualDurationMinutes", policy.maxManualDurationMinutes);
  fields.required("lidOpenGraceSeconds", policy.lidOpenGraceSeconds);
  fields.required("noRouteGraceSeconds", policy.noRouteGraceSeconds);
  fields.flag("stopAtThermalPressure", policy.stopAtThermalPressure);
  fields.flag("stopInLowPowerMode", policy.stopInLowPowerMode);
}

NODO_JSON_RECORD(PowerDecision, fields, decision) {
  fields.required("shouldPreventSleep", decision.shouldPreventSleep);
  fields.required("reasons", decision.reasons);
  fields.required("safetyBlocks", decision.safetyBlocks);
  fields.optional("stopReason", decision.stopReason);
}

namespace {

bool isBatteryTooLow(const SystemSnapshot& snapshot, const SafetyPolicy& policy) {
  return snapshot.powerSource == PowerSource::battery && snapshot.batteryPercent &&
         *snapshot.batteryPercent <= policy.minimumBatteryPercent;
}

// The elapsed time is compared with its fraction, unlike the remaining times, which are floored.
bool isNoRouteGraceExhausted(const NODOState& state, const SystemSnapshot& snapshot,
                             const SafetyPolicy& policy) {
  return snapshot.defaultRouteAvailable == false && state.manualIsActive(snapshot.now) &&
         state.noRouteUnavailableSince &&
         snapshot.now - *state.noRouteUnavailableSince >=
             Seconds(static_cast<double>(policy.noRouteGraceSeconds));
}

bool isTooHot(const NODOState& state, const SystemSnapshot& snapshot) {
  return snapshot.thermalPressure == ThermalPressure::critical ||
         state.heatGraceRemainingSeconds(snapshot, SafetyPolicy::seriousHeatGraceSeconds) == 0;
}

bool isInLowPowerMode(const SystemSnapshot& snapshot) {
  return snapshot.lowPowerMode == true && snapshot.powerSource == PowerSource::battery;
}

std::vector<std::string> safetyBlocks(const NODOState& state, const SystemSnapshot& snapshot,
                                      const SafetyPolicy& policy) {
  std::vector<std::string> blocks;
  if (isBatteryTooLow(snapshot, policy)) {
    blocks.emplace_back(reason::batteryBelowThreshold);
  }
  if (isNoRouteGraceExhausted(state, snapshot, policy)) {
    blocks.emplace_back(reason::networkUnavailable);
  }
  if (policy.stopAtThermalPressure && isTooHot(state, snapshot)) {
    blocks.emplace_back(reason::thermalPressure);
  }
  if (policy.stopInLowPowerMode && isInLowPowerMode(snapshot)) {
    blocks.emplace_back(reason::lowPowerMode);
  }
  return blocks;
}

}  // namespace

bool PowerDecision::isVetoedBy(std::string_view rule) const {
  return std::find(safetyBlocks.begin(), safetyBlocks.end(), rule) != safetyBlocks.end();
}

PowerDecision PowerDecisionEngine::evaluate(const NODOState& state,
                                            const std::vector<AgentProcess>& /*agents*/,
                                            const SystemSnapshot& snapshot) const {
  PowerDecision decision;
  decision.safetyBlocks = safetyBlocks(state, snapshot, policy);
  if (!decision.safetyBlocks.empty()) {
    decision.stopReason = decision.safetyBlocks.front();
    return decision;
  }
  if (state.manualIsActive(snapshot.now)) {
    decision.shouldPreventSleep = true;
    decision.reasons.emplace_back(reason::manualTimer);
    if (state.isWithinLidOpenGrace(snapshot.now, policy.lidOpenGraceSeconds)) {
      decision.reasons.emplace_back(reason::lidOpenGrace);
    }
    return decision;
  }
  // In its last second a timer no longer keeps awake but has not expired either.
  const bool expired = state.manualUntil && *state.manualUntil <= snapshot.now;
  decision.stopReason = expired ? reason::manualExpired : reason::notArmed;
  return decision;
}

}  // namespace nodo
