#include <NODOCore/base/Date.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/control/PowerDecision.h>
#include <NODOCore/diagnostics/Headline.h>
#include <programs/nodoctl/commands/Commands.h>

#include <array>
#include <optional>
#include <string_view>
#include <utility>

#include <fmt/format.h>

namespace nodo::nodoctl {

std::string explained(std::string_view word) {
  constexpr std::array<std::pair<std::string_view, std::string_view>, 14> explanations{
      {{reason::manualTimer, "the timer runs"},
       {reason::lidOpenGrace, "the lid was opened just now"},
       {reason::batteryBelowThreshold, "the battery is low"},
       {reason::networkUnavailable, "there is no network route"},
       {reason::thermalPressure, "the computer is too hot"},
       {reason::lowPowerMode, "low power mode is on"},
       {reason::manualExpired, "the timer ran out"},
       {reason::notArmed, "no timer runs"},
       {reason::userStop, "it was stopped"},
       {reason::repair, "the state was repaired"},
       {reason::closedLidRelease, "the lid is closed"},
       {reason::daemonStopping, "the daemon ended"},
       {reason::unconfirmed, "nobody could confirm that it was still wanted"},
       {reason::unknown, "unknown"}}};
  for (const auto& [known, text] : explanations) {
    if (word == known) {
      return std::string(text);
    }
  }
  return escapedForDisplay(word);
}

namespace {

std::string allExplained(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) {
    text += (text.empty() ? "" : ", ") + explained(word);
  }
  return text;
}

std::string decisionText(const PowerDecision& decision) {
  if (decision.shouldPreventSleep) {
    return "prevent sleep (" + allExplained(decision.reasons) + ")";
  }
  return "allow sleep (" + explained(decision.stopReason.value_or(reason::unknown)) + ")";
}

std::string timerText(const StatusReport& report) {
  const auto end = report.state.manualUntil;
  return end && report.manualRemainingSeconds.value_or(0) > 0
             ? timeLeftText(*end - report.generatedAt) + " left"
             : "off";
}

std::string sourceText(const SystemSnapshot& snapshot) {
  const std::string charge =
      snapshot.batteryPercent ? fmt::format(", battery at {} %", *snapshot.batteryPercent) : "";
  switch (snapshot.powerSource) {
    case PowerSource::ac:
      return "mains" + charge;
    case PowerSource::battery:
      return "battery" + (charge.empty() ? "" : fmt::format(" at {} %", *snapshot.batteryPercent));
    case PowerSource::unknown:
      break;
  }
  return "unknown" + charge;
}

std::string powerText(const SystemSnapshot& snapshot) {
  return sourceText(snapshot) + (snapshot.lowPowerMode == true ? ", low power mode" : "");
}

std::string_view choose(std::optional<bool> value, std::string_view whenTrue,
                        std::string_view whenFalse) {
  return !value ? "unknown" : *value ? whenTrue : whenFalse;
}

std::string networkText(const StatusReport& report) {
  std::string text(
      choose(report.snapshot.defaultRouteAvailable, "default route", "no default route"));
  if (report.noRouteGraceRemainingSeconds.value_or(0) > 0) {
    text += ", sleep will be allowed in " + durationText(*report.noRouteGraceRemainingSeconds);
  }
  return text;
}

// Only where the machine suffers.
std::string heatLine(const StatusReport& report) {
  const SystemSnapshot& machine = report.snapshot;
  if (machine.thermalPressure < ThermalPressure::serious) {
    return "";
  }
  std::string text = fmt::format("Heat:       {}", escapedForDisplay(heatText(machine)));
  const auto left = report.heatGraceRemainingSeconds.value_or(0);
  if (left > 0 && report.decision.safetyBlocks.empty()) {
    text += ", sleep will be allowed in " + durationText(left);
  }
  return text + "\n";
}

std::string requesterText(const ActivationRequester& requester) {
  std::string text = escapedForDisplay(requester.displayText());
  if (requester.event) {
    text += " (" + escapedForDisplay(*requester.event) + ")";
  }
  return text;
}

std::string operationText(const PowerOperationResult& operation) {
  std::string_view action;
  switch (operation.action) {
    case PowerOperationAction::disableSleep:
      action = "switch the sleep lock on";
      break;
    case PowerOperationAction::enableSleep:
      action = "switch the sleep lock off";
      break;
    case PowerOperationAction::sleepNow:
      action = "ask for sleep";
      break;
  }
  if (operation.dryRun) {
    return fmt::format("would {}", action);
  }
  const std::string exit =
      operation.exitCode ? fmt::format("exit {}", *operation.exitCode) : "exit unknown";
  return fmt::format("{} ({})", action, exit);
}

std::string blockerText(const SleepBlocker& blocker) {
  return fmt::format(
      "  pid {} {}: {} \"{}\"{}{}\n", blocker.pid, escapedForDisplay(blocker.processName),
      escapedForDisplay(blocker.assertionType), escapedForDisplay(blocker.assertionName),
      blocker.duration.empty() ? "" : " for ", escapedForDisplay(blocker.duration));
}

std::string blockersText(const SleepDiagnosticsReport& report, SleepBlockerScope scope,
                         std::string_view title) {
  std::string lines;
  for (const SleepBlocker& blocker : report.blockers) {
    lines += blocker.scope == scope ? blockerText(blocker) : "";
  }
  return lines.empty() ? "" : fmt::format("{}:\n{}", title, lines);
}

}  // namespace

std::string machineText(const StatusReport& report) {
  return fmt::format("Power:      {}\nNetwork:    {}\nLid:        {}\n", powerText(report.snapshot),
                     networkText(report), choose(report.snapshot.lidClosed, "closed", "open")) +
         heatLine(report);
}

std::string reportText(const StatusReport& report) {
  std::string text;
  text += fmt::format("Decision:   {}\n", decisionText(report.decision));
  text += fmt::format("Timer:      {}\n", timerText(report));
  text += fmt::format("Sleep lock: {}\n", report.state.ownsSleepDisable ? "on" : "off");
  if (report.state.lastRequester) {
    text += fmt::format("Requester:  {}\n", requesterText(*report.state.lastRequester));
  }
  text += machineText(report);
  text += fmt::format("Agents:     {}\n", report.agents.size());
  return text;
}

std::string reportText(const DaemonRunReport& report) {
  std::string text;
  for (const PowerOperationResult& operation : report.operations) {
    text += fmt::format("Operation:  {}\n", operationText(operation));
  }
  if (report.operations.empty()) {
    text += "Operation:  nothing to do\n";
  }
  text += fmt::format("State:      {}\n", report.stateChanged ? "changed" : "unchanged");
  return text + reportText(report.status);
}

std::string reportText(const SleepDiagnosticsReport& report) {
  std::string text = fmt::format("Sleep lock: {}\n", choose(report.sleepDisabled, "on", "off"));
  for (const auto& line : {report.sleepLine, report.displaySleepLine}) {
    text += line ? fmt::format("Setting:    {}\n", escapedForDisplay(*line)) : "";
  }
  if (report.blockers.empty()) {
    text += "Nothing is known to block sleep.\n";
  }
  text += blockersText(report, SleepBlockerScope::systemSleep, "Blocks sleep");
  text += blockersText(report, SleepBlockerScope::displaySleep, "Blocks the display's sleep");
  text += blockersText(report, SleepBlockerScope::other, "Blocks something else than sleep");
  return text;
}

std::string reportText(const std::vector<AgentProcess>& agents) {
  if (agents.empty()) {
    return "No coding agents are running.\n";
  }
  std::string text = fmt::format("{:>7}  {:<11}  {}\n", "PID", "AGENT", "COMMAND");
  for (const AgentProcess& agent : agents) {
    text += fmt::format("{:>7}  {:<11}  {}\n", agent.pid, displayName(agent.kind),
                        escapedForDisplay(agent.command));
  }
  return text;
}

}  // namespace nodo::nodoctl
