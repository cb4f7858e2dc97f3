#include <cstdint>

#include <tests/programs/nodo-menu/SampleFacts.h>

namespace nodo::menu::sample {

nodoctl::HealthFacts idle() {
  nodoctl::HealthFacts facts;
  facts.status.report.generatedAt = now;
  facts.status.report.state = NODOState::fresh(now);
  facts.sleepDisabled = false;
  facts.forFindings.now = now;
  AgentHookSetupInspection hooks;
  hooks.hookScriptStatus = AgentHookComponentStatus::current;
  hooks.targets = {
      {.target = AgentHookTarget::claude, .status = AgentHookComponentStatus::current}};
  facts.forFindings.hooks = hooks;
  facts.forFindings.keepAwake = KeepAwakeFacts{.report = facts.status.report, .lockIsOn = false};
  return facts;
}

nodoctl::HealthFacts keptAwake(double minutes) {
  nodoctl::HealthFacts facts = idle();
  StatusReport& report = facts.status.report;
  report.state.manualUntil = now + Seconds(minutes * 60);
  report.state.ownsSleepDisable = true;
  report.state.recordRequester({"Codex", "api", "PreToolUse", now}, now, 6, 200);
  report.decision.shouldPreventSleep = true;
  facts.sleepDisabled = true;
  report.manualRemainingSeconds = static_cast<std::int64_t>(minutes * 60);
  facts.forFindings.keepAwake = KeepAwakeFacts{.report = report, .lockIsOn = true};
  return facts;
}

nodoctl::HealthFacts vetoed() {
  nodoctl::HealthFacts facts = keptAwake();
  StatusReport& report = facts.status.report;
  report.state.ownsSleepDisable = false;
  report.decision = {.shouldPreventSleep = false, .safetyBlocks = {"battery_below_threshold"}};
  facts.sleepDisabled = false;
  facts.forFindings.keepAwake = KeepAwakeFacts{.report = report, .lockIsOn = false};
  return facts;
}

nodoctl::HealthFacts withoutDaemon(bool isBroken) {
  nodoctl::HealthFacts facts = idle();
  facts.status.source = DoctorStatusSource::local;
  facts.status.unavailable = nodoctl::Unavailability{
      .reason = "gone", .sentence = "no daemon nodod: gone", .isBroken = isBroken};
  facts.forFindings.daemonIsThere = isBroken;
  facts.forFindings.keepAwake->daemonFailure = "no daemon nodod: gone";
  return facts;
}

}  // namespace nodo::menu::sample
