#include <NODOCore/base/Environment.h>
#include <NODOCore/base/Errors.h>
#include <NODOCore/base/LocalTime.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/control/DaemonSettings.h>
#include <NODOCore/diagnostics/DoctorReport.h>
#include <NODOCore/hooks/HookPause.h>
#include <NODOCore/state/StateStore.h>
#include <programs/nodoctl/commands/Commands.h>
#include <programs/nodoctl/commands/Health.h>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <memory>
#include <set>
#include <stdexcept>
#include <system_error>
#include <type_traits>
#include <utility>

#include <fmt/format.h>

namespace nodo::nodoctl {
namespace {

using Problems = std::vector<std::string>;

// What `read` gives; when it fails that becomes a problem, which begins with `what`.
template <class Read>
std::optional<std::invoke_result_t<Read>> readOrTell(Problems& problems, const char* what,
                                                     Read read) {
  try {
    return read();
  } catch (const std::exception& error) {
    problems.push_back(std::string(what) + error.what());
    return std::nullopt;
  }
}

// The user's own status with whatever can be read of it: agents that cannot be listed are none, a
// machine that cannot be looked at is unknown, and a state that cannot be read is a fresh one.
StatusReport localStatus(const ToolContext& context, Problems& problems) {
  const Date now = context.now();
  const HostMachine& machine = context.machine;
  const auto processes = readOrTell(problems, "no agents can be found: ", [&] {
    return machine.processListing->listProcesses();
  });
  const auto snapshot = readOrTell(problems, "power, network and lid cannot be read: ", [&] {
    return machine.snapshotProvider->snapshot(now);
  });
  const StaticProcessListing listing(processes.value_or(std::vector<RunningProcess>()));
  const StaticSystemSnapshotProvider snapshots(snapshot.value_or(SystemSnapshot{.now = now}));
  const auto status = readOrTell(problems, "", [&] {
    NODOController controller = localController(context);
    controller.processListing = std::make_shared<StaticProcessListing>(listing);
    controller.snapshotProvider = std::make_shared<StaticSystemSnapshotProvider>(snapshots);
    return controller.status(now);
  });
  if (status) {
    return *status;
  }
  StatusReport report;
  report.generatedAt = now;
  report.state = NODOState::fresh(now);
  report.agents = AgentDetector().detect(listing);
  report.snapshot = snapshots.snapshot(now);
  report.decision =
      PowerDecisionEngine{defaultPolicy}.evaluate(report.state, report.agents, report.snapshot);
  return report;
}

// What can be told of the agents' hooks. A target that cannot be is left out, and found.
AgentHookSetupInspection inspectHooks(const ToolContext& context, FindingFacts& facts) {
  const auto home = homeFolder(context.environment);
  if (!home) {
    throw std::runtime_error("HOME is not set");
  }
  const AgentHookInstaller installer(*home, std::nullopt, toolPath(context).value_or("").string());
  AgentHookSetupInspection inspection = installer.inspectReportingFailures(
      allCases<AgentHookTarget>(), hookSurroundings(context.environment), facts.hookObstacles);
  const auto unreadable =
      std::stable_partition(inspection.targets.begin(), inspection.targets.end(),
                            [](const auto& target) { return !target.error; });
  facts.unreadableHooks.assign(unreadable, inspection.targets.end());
  inspection.targets.erase(unreadable, inspection.targets.end());
  return inspection;
}

// The agents that have a folder of their own in `home`.
std::set<AgentHookTarget> agentsIn(const std::filesystem::path& home) {
  std::set<AgentHookTarget> found;
  for (const Agent& agent : allAgents()) {
    std::error_code ignored;
    const std::filesystem::path file(agent.configurationFile);
    if (std::filesystem::is_directory(home / *file.begin(), ignored)) {
      found.insert(agent.target);
    }
  }
  return found;
}

// The agents whose hooks should run, as far as anybody can tell.
std::set<AgentHookTarget> hookedTargets(const FindingFacts& facts) {
  std::set<AgentHookTarget> hooked;
  if (!facts.hooks || facts.hooksPausedUntil) {
    return hooked;
  }
  for (const AgentHookTargetInspection& target : facts.hooks->targets) {
    if (isInstalled(target.status)) {
      hooked.insert(target.target);
    }
  }
  for (const HookObstacle& obstacle : facts.hookObstacles) {
    if (!obstacle.target) {
      return {};
    }
    hooked.erase(*obstacle.target);
  }
  return hooked;
}

// Who holds up sleep, but for the process that holds nodo's own lock.
std::vector<SleepBlocker> otherHolders(const SleepDiagnosticsReading& reading) {
  std::vector<SleepBlocker> others;
  for (const SleepBlocker& blocker : reading.report.blockers) {
    if (blocker.scope == SleepBlockerScope::systemSleep && blocker.pid != reading.lockHolder) {
      others.push_back(blocker);
    }
  }
  return others;
}

// What the machine itself knows, without the daemon.
void lookAtMachine(const ToolContext& context, HealthFacts& facts) {
  const Date now = context.now();
  FindingFacts& found = facts.forFindings;
  found.now = now;
  found.restartCommand = context.restartCommand;
  found.hookFallback =
      AgentHookLogInspector::recentFallbackStatus(std::nullopt, now, context.environment);
  if (auto reading = readOrTell(facts.problems, "what affects sleep cannot be read: ", [&] {
        return context.machine.sleepDiagnostics(now);
      })) {
    facts.sleepDisabled = reading->report.sleepDisabled;
    found.otherHolders = otherHolders(*reading);
    if (reading->hint) {
      facts.problems.push_back(*std::move(reading->hint));
    }
  }
  if (const auto home = homeFolder(context.environment)) {
    found.hooksPausedUntil = hooksPausedUntil(*home, now);
    found.agentsHere = agentsIn(*home);
  }
  found.hooks = readOrTell(facts.problems, "the agents' hooks cannot be inspected: ", [&] {
    return inspectHooks(context, found);
  });
}

bool isNoAgentSetUp(const FindingFacts& facts) {
  return facts.hooks && facts.hooks->installedTargetCount() == 0 && facts.unreadableHooks.empty();
}

std::string foreignHolders(const HealthFacts& facts) {
  std::string lines;
  for (const SleepBlocker& blocker : facts.forFindings.otherHolders) {
    lines += fmt::format("- {} pid={}: {} ({})\n", escapedForDisplay(blocker.processName),
                         blocker.pid, escapedForDisplay(blocker.assertionName),
                         escapedForDisplay(blocker.assertionType));
  }
  if (!lines.empty()) {
    return "Others that hold up sleep:\n" + lines;
  }
  return fmt::format("Others that hold up sleep: {}\n", facts.sleepDisabled ? "none" : "unknown");
}

std::string askedLast(const HealthFacts& facts) {
  std::string text;
  for (const auto& [agent, at] : lastRequests(facts.status.report.state)) {
    text += fmt::format("{}{} {}", text.empty() ? "" : ", ", displayName(agent),
                        clockText(at, facts.forFindings.now));
  }
  return text.empty() ? "no agent, as far as is known" : text;
}

std::string settingsText(const std::optional<SettingsReport>& settings) {
  if (!settings) {
    return "Settings:   unknown, as the daemon does not tell\n";
  }
  std::string text = fmt::format("Settings:   of the daemon, from its options and {}\n",
                                 escapedForDisplay(settings->file));
  for (const std::string& line : settings->lines) {
    text += fmt::format("            {}\n", escapedForDisplay(line));
  }
  return text;
}

std::string statePath(const Environment& environment) {
  try {
    return StateStore::defaultStore(environment).stateURL().string();
  } catch (const NODOError& error) {
    return error.what();
  }
}

// What else helps somebody who looks for the reason: who else holds sleep, the machine as it was
// seen, where things lie, versions. Lines with a line feed at the end of each, after an empty one.
std::string verboseText(const HealthFacts& facts, const Environment& environment) {
  std::string text = "\n" + foreignHolders(facts);
  text += machineText(facts.status.report);
  text += fmt::format("Asked last: {}\n", askedLast(facts));
  text += settingsText(facts.forFindings.settings);
  text += fmt::format("Own state:  {}\n", escapedForDisplay(statePath(environment)));
  text +=
      fmt::format("Hook log:   {}\n", escapedForDisplay(facts.forFindings.hookFallback.logPath));
  text += fmt::format("nodoctl:    version {}\n", version());
  return text;
}

}  // namespace

HealthFacts gatherHealth(const DaemonOptions& options, const ToolContext& context,
                         HealthDepth depth) {
  HealthFacts facts;
  FindingFacts& found = facts.forFindings;
  const StateAccess state(options, context, nullptr);
  try {
    facts.status.report = state.daemonStatus();
    if (depth == HealthDepth::findings) {
      DaemonStanding standing = state.daemonStanding();
      found.daemonRefusal = std::move(standing.refusal);
      found.daemonLetsItsUserSleep = standing.letsItsUserSleep;
      found.settings = std::move(standing.settings);
    }
  } catch (const std::exception& error) {
    facts.status.unavailable = Unavailability::from(error, context.refusalOfThisProgram);
    found.daemonIsThere = facts.status.unavailable->isBroken;
  }
  lookAtMachine(context, facts);
  if (facts.status.unavailable) {
    facts.status.report = localStatus(context, facts.problems);
    facts.status.source = DoctorStatusSource::local;
  } else if (depth == HealthDepth::findings) {
    found.silentAgents =
        silentAgents(facts.status.report, hookedTargets(found), context.machine.ageOfOwnProcess);
  }
  found.keepAwake = state.keepAwakeFacts(facts.status, facts.sleepDisabled, found.settings);
  found.keepAwake->isNoAgentSetUp = isNoAgentSetUp(found);
  return facts;
}

void lookAgain(HealthFacts& facts, const ToolContext& context) {
  StatusReport& report = facts.status.report;
  FindingFacts& found = facts.forFindings;
  report.generatedAt = context.now();
  report.manualRemainingSeconds = report.state.manualRemainingSeconds(report.generatedAt);
  facts.problems.clear();
  facts.sleepDisabled.reset();
  found.otherHolders.clear();
  found.unreadableHooks.clear();
  found.hookObstacles.clear();
  lookAtMachine(context, facts);
  KeepAwakeFacts& lock = found.keepAwake.value();
  lock.report = report;
  lock.lockIsOn = facts.sleepDisabled;
  lock.isNoAgentSetUp = isNoAgentSetUp(found);
}

std::vector<std::string> healthHints(const HealthFacts& facts) {
  std::vector<std::string> hints;
  if (facts.status.unavailable) {
    hints.push_back(localStateNotice(facts.status.unavailable->reason));
  }
  hints.insert(hints.end(), facts.problems.begin(), facts.problems.end());
  return hints;
}

SetupMenuSignals setupSignals(const HealthFacts& facts) {
  SetupMenuSignals signals;
  signals.helperIsReady = !facts.status.unavailable;
  signals.helperNeedsRepair = facts.status.unavailable && facts.forFindings.daemonIsThere;
  signals.helperNeedsInstall = facts.status.unavailable && !facts.forFindings.daemonIsThere;
  const StatusReport& report = facts.status.report;
  signals.powerLockPending =
      signals.helperIsReady && report.decision.shouldPreventSleep && !report.state.ownsSleepDisable;
  if (!facts.forFindings.hooks || !facts.forFindings.unreadableHooks.empty()) {
    signals.hooksFailed = true;
    return signals;
  }
  const AgentHookSetupInspection& hooks = *facts.forFindings.hooks;
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

std::string setupAdvice(const SetupMenuSignals& signals, std::string_view restartCommand) {
  if (!SetupMenuPresentation::setupLine(signals)) {
    return "";
  }
  if (signals.helperNeedsRepair) {
    return std::string(restartCommand);
  }
  if (signals.helperNeedsInstall) {
    return fmt::format("install the package nodo, or {}", restartCommand);
  }
  const bool isForDoctor = signals.powerLockPending || signals.hooksFailed;
  return isForDoctor ? "nodoctl doctor" : "nodoctl hooks install";
}

Answer perform(const DoctorCommand& command, const ToolContext& context) {
  const HealthFacts facts = gatherHealth(command.daemon, context, HealthDepth::findings);
  const DoctorReport report(facts.status.source, facts.status.report, facts.sleepDisabled,
                            facts.forFindings.hookFallback, facts.forFindings.hooks);
  const std::vector<Finding> found = findings(facts.forFindings);
  const Headline judgement = headline(facts.forFindings.keepAwake.value());
  const bool isWarned = std::any_of(found.begin(), found.end(), [](const Finding& finding) {
    return finding.severity == FindingSeverity::warning;
  });
  Answer answer{.exitStatus = isReady(report.verdict) && !isWarned ? exitSuccess : exitFailure};
  for (const std::string& hint : healthHints(facts)) {
    answer.hints.push_back(unlikeReport(hint));  // the hook script reads them, too
  }
  if (command.json) {
    answer.output = jsonText(encode(report, found, judgement), JSONLayout::pretty) + "\n";
    return answer;
  }
  std::string below = "\n" + findingsText(found);
  if (command.verbose) {
    below += verboseText(facts, context.environment) + "\n";
  }
  below += judgement.text + "\n";  // last, where it is seen first
  answer.output = report.text() + "\n" + unlikeReport(below);
  return answer;
}

}  // namespace nodo::nodoctl
