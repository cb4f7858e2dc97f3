#include <NODOCore/base/Date.h>
#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/diagnostics/DoctorReport.h>
#include <NODOCore/hooks/AgentHookLogInspector.h>

#include <algorithm>
#include <utility>

#include <fmt/format.h>

namespace nodo {

namespace {

constexpr std::size_t mostRecentRequests = 6;

// Each line is escaped as a whole, so that it stays one line whatever it holds.
class Lines {
 public:
  void add(std::string_view line) {
    if (!text_.empty()) {
      text_ += '\n';
    }
    text_ += escapedForDisplay(line);
  }

  void add(std::string_view name, std::string_view value) {
    add(fmt::format("{}: {}", name, value));
  }

  const std::string& text() const { return text_; }

 private:
  std::string text_;
};

bool isTimerRunning(const StatusReport& report) {
  return report.manualRemainingSeconds.value_or(0) >= 1;
}

std::string_view activityWord(const StatusReport& report) {
  return report.decision.shouldPreventSleep || isTimerRunning(report) ? "active" : "inactive";
}

std::string_view lockWord(const StatusReport& report) {
  return report.state.ownsSleepDisable ? "on" : "off";
}

std::string timerText(const StatusReport& report) {
  return isTimerRunning(report) ? durationText(*report.manualRemainingSeconds) + " remaining"
                                : "off";
}

std::string_view liveWord(std::optional<bool> liveSleepDisabled) {
  if (!liveSleepDisabled) {
    return "unknown";
  }
  return *liveSleepDisabled ? "on" : "off";
}

std::string outcome(const PowerOperationAudit& operation) {
  if (operation.exitCode) {
    return fmt::format("exit {}", *operation.exitCode);
  }
  return operation.dryRun ? "dry-run" : "exit unknown";
}

std::string summary(const PowerOperationAudit& operation) {
  const std::string reason = operation.reason ? *operation.reason + ", " : "";
  return fmt::format("{} at {} ({}{})", rawValue(operation.action),
                     iso8601Text(operation.occurredAt), reason, outcome(operation));
}

void addHooks(Lines& lines, const AgentHookSetupInspection& inspection) {
  lines.add("Hook script", displayName(inspection.hookScriptStatus));
  lines.add("Hook script path", inspection.hookScriptPath);
  lines.add("Hook script expected fingerprint", inspection.expectedHookScriptFingerprint);
  if (inspection.installedHookScriptFingerprint) {
    lines.add("Hook script installed fingerprint", *inspection.installedHookScriptFingerprint);
  }
  lines.add("Hook targets", fmt::format("{}/{} current", inspection.currentTargetCount(),
                                        inspection.targetCount()));
  for (const AgentHookTargetInspection& target : inspection.targets) {
    lines.add(fmt::format("- {}: {} ({})", displayName(target.target), displayName(target.status),
                          target.path));
  }
}

void addLastEvents(Lines& lines, const NODOState& state) {
  if (state.lastRequester) {
    lines.add("Last request", state.lastRequester->displayText());
    if (state.lastRequester->event) {
      lines.add("Last event", *state.lastRequester->event);
    }
  }
  if (state.lastPowerOperation) {
    lines.add("Last power operation", summary(*state.lastPowerOperation));
  }
}

// A single one has been shown as the last request.
void addRecentRequests(Lines& lines, const std::vector<ActivationRequester>& requesters) {
  if (requesters.size() < 2) {
    return;
  }
  lines.add("Recent requests:");
  for (std::size_t index = 0; index < std::min(requesters.size(), mostRecentRequests); ++index) {
    const ActivationRequester& requester = requesters[index];
    lines.add("- " + requester.displayText() +
              (requester.event ? " (" + *requester.event + ")" : ""));
  }
}

void addAgents(Lines& lines, const std::vector<AgentProcess>& agents) {
  lines.add("Agents detected", std::to_string(agents.size()));
  for (const AgentProcess& agent : agents) {
    lines.add(fmt::format("- {} pid={} executable={}", displayName(agent.kind), agent.pid,
                          agent.executable));
  }
}

}  // namespace

std::string_view displayName(DoctorStatusSource source) {
  return source == DoctorStatusSource::helper ? "helper" : "local fallback";
}

bool isReady(DoctorVerdict verdict) {
  switch (verdict) {
    case DoctorVerdict::timerActive:
    case DoctorVerdict::idle:
    case DoctorVerdict::locked:
      return true;
    case DoctorVerdict::daemonUnavailable:
    case DoctorVerdict::lockMissing:
    case DoctorVerdict::settingOff:
      break;
  }
  return false;
}

DoctorVerdict doctorVerdict(const StatusReport& report, DoctorStatusSource source,
                            std::optional<bool> liveSleepDisabled) {
  if (source == DoctorStatusSource::local) {
    return DoctorVerdict::daemonUnavailable;
  }
  if (!report.state.ownsSleepDisable) {
    if (report.decision.shouldPreventSleep) {
      return DoctorVerdict::lockMissing;
    }
    return isTimerRunning(report) ? DoctorVerdict::timerActive : DoctorVerdict::idle;
  }
  return liveSleepDisabled == false ? DoctorVerdict::settingOff : DoctorVerdict::locked;
}

std::string DoctorReportFormatter::format(
    const StatusReport& report, DoctorStatusSource source, std::optional<bool> liveSleepDisabled,
    const std::optional<AgentHookFallbackStatus>& hookFallback,
    const std::optional<AgentHookSetupInspection>& hookInspection) {
  Lines lines;
  lines.add("nodo doctor");
  lines.add("Status source", displayName(source));
  lines.add("Status", activityWord(report));
  lines.add("Timer", timerText(report));
  lines.add("Power lock", lockWord(report));
  if (hookFallback) {
    lines.add("Hook fallback", hookFallback->isActive ? "active" : "inactive");
  }
  lines.add("macOS SleepDisabled", liveWord(liveSleepDisabled));
  if (hookFallback) {
    const auto warning =
        AgentHookLogInspector::doctorWarning(*hookFallback, report.state.ownsSleepDisable);
    if (warning) {
      lines.add(*warning);
    }
  }
  if (hookInspection) {
    addHooks(lines, *hookInspection);
  }
  addLastEvents(lines, report.state);
  addRecentRequests(lines, report.state.recentRequesters);
  addAgents(lines, report.agents);
  lines.add("Decision", report.decision.shouldPreventSleep ? "prevent sleep" : "allow sleep");
  lines.add(rawValue(doctorVerdict(report, source, liveSleepDisabled)));
  return lines.text();
}

std::string DoctorReportFormatter::formatRepairResult(const StatusReport& report,
                                                      DoctorStatusSource source) {
  Lines lines;
  lines.add(fmt::format("Repair finished via {}.", displayName(source)));
  lines.add("Status", activityWord(report));
  lines.add("Power lock", lockWord(report));
  lines.add("Timer", timerText(report));
  if (report.state.lastStopReason) {
    lines.add("Last stop reason", *report.state.lastStopReason);
  }
  lines.add(report.decision.shouldPreventSleep ? "nodo still wants to prevent sleep."
                                               : "nodo is not preventing sleep.");
  return lines.text();
}

DoctorReport::DoctorReport(DoctorStatusSource statusSource, StatusReport report,
                           std::optional<bool> liveSleepDisabled,
                           std::optional<AgentHookFallbackStatus> hookFallback,
                           std::optional<AgentHookSetupInspection> hookInspection)
    : statusSource(statusSource),
      report(std::move(report)),
      liveSleepDisabled(liveSleepDisabled),
      hookFallback(std::move(hookFallback)),
      hookInspection(std::move(hookInspection)),
      verdict(doctorVerdict(this->report, statusSource, liveSleepDisabled)) {}

std::string DoctorReport::text() const {
  return DoctorReportFormatter::format(report, statusSource, liveSleepDisabled, hookFallback,
                                       hookInspection);
}

NODO_JSON_RECORD(DoctorReport, fields, report) {
  fields.required("statusSource", report.statusSource);
  fields.required("report", report.report);
  fields.optional("liveSleepDisabled", report.liveSleepDisabled);
  fields.optional("hookFallback", report.hookFallback);
  fields.optional("hookInspection", report.hookInspection);
  fields.required("verdict", report.verdict);
}

}  // namespace nodo
