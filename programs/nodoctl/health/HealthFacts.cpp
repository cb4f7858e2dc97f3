#include <NODOCore/hooks/AgentHookInstaller.h>
#include <NODOCore/hooks/AgentHookLogInspector.h>
#include <programs/nodoctl/ToolPath.h>
#include <programs/nodoctl/health/HealthFacts.h>
#include <programs/nodoctl/health/LocalStatus.h>

#include <exception>
#include <future>
#include <stdexcept>
#include <utility>

namespace nodo::nodoctl {
namespace {

AgentHookSetupInspection inspectHooks(const ToolContext& context) {
  const auto home = nonEmptyValue(context.environment, "HOME");
  if (!home) {
    throw std::runtime_error("HOME is not set");
  }
  const auto tool = toolPath(context.startedAs, context.environment);
  const AgentHookInstaller installer(absolutePath(*home), std::nullopt, tool ? tool->string() : "");
  return installer.inspect(allCases<AgentHookTarget>());
}

// What the machine itself knows, without the daemon.
HealthFacts lookAtMachine(const ToolContext& context) {
  HealthFacts facts;
  const Date now = context.now();
  facts.hookFallback =
      AgentHookLogInspector::recentFallbackStatus(std::nullopt, now, context.environment);
  try {
    SleepDiagnosticsReading reading = context.machine.sleepDiagnostics(now);
    facts.diagnostics = std::move(reading.report);
    facts.lockHolder = reading.lockHolder;
    if (reading.hint) {
      facts.problems.push_back(*std::move(reading.hint));
    }
  } catch (const std::exception& error) {
    facts.problems.push_back(std::string("what affects sleep cannot be read: ") + error.what());
  }
  try {
    facts.hookInspection = inspectHooks(context);
  } catch (const std::exception& error) {
    facts.problems.push_back(std::string("the agents' hooks cannot be inspected: ") + error.what());
  }
  return facts;
}

}  // namespace

HealthFacts gatherHealth(const HelperOptions& options, const ToolContext& context) {
  std::future<HealthFacts> machine =
      std::async(std::launch::async, [&context] { return lookAtMachine(context); });
  std::optional<StatusReport> fromDaemon;
  std::optional<Unavailability> unavailable;
  try {
    fromDaemon = StateAccess(options, context, nullptr).daemonStatus();
  } catch (const std::exception& error) {
    unavailable = Unavailability::from(error);
  }
  // Only now the own status: the machine's senses are not for two threads.
  HealthFacts facts = machine.get();
  facts.unavailable = std::move(unavailable);
  facts.status = fromDaemon ? SourcedStatus{.report = *std::move(fromDaemon),
                                            .source = DoctorStatusSource::helper}
                            : SourcedStatus{.report = localStatusAtAnyRate(context, facts.problems),
                                            .source = DoctorStatusSource::local};
  return facts;
}

std::vector<std::string> healthHints(const HealthFacts& facts) {
  std::vector<std::string> hints;
  if (facts.unavailable) {
    hints.push_back(localStateNotice(facts.unavailable->reason));
  }
  hints.insert(hints.end(), facts.problems.begin(), facts.problems.end());
  return hints;
}

SetupMenuSignals setupSignals(const HealthFacts& facts) {
  SetupMenuSignals signals;
  signals.helperIsReady = !facts.unavailable;
  signals.helperNeedsRepair = facts.unavailable && facts.unavailable->isBroken;
  signals.helperNeedsInstall = facts.unavailable && !facts.unavailable->isBroken;
  const StatusReport& report = facts.status.report;
  signals.powerLockPending =
      signals.helperIsReady && report.decision.shouldPreventSleep && !report.state.ownsSleepDisable;
  if (!facts.hookInspection) {
    signals.hooksFailed = true;
    return signals;
  }
  const AgentHookSetupInspection& hooks = *facts.hookInspection;
  const std::int64_t installed = hooks.installedTargetCount();
  signals.hooksAreReady = hooks.isCurrent();
  signals.hooksNeedUpdate = hooks.needsUpdate();
  if (installed > 0 && installed < hooks.targetCount()) {
    signals.hooksPartialInstalled = installed;
    signals.hooksPartialTotal = hooks.targetCount();
  }
  signals.hooksNeedInstall = installed == 0 || !isInstalled(hooks.hookScriptStatus);
  return signals;
}

}  // namespace nodo::nodoctl
