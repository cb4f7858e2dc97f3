// Prints documents of every kind, some with every field and some with none that may be absent, for
// the checks of their schemas: one a line, after the name of its schema and a tab.
//
// usage: nodo_sample_documents           the documents
//        nodo_sample_documents --state   the text of a state file in which everything is set

#include <NODOCore/NODOCore.h>

#include <iostream>
#include <string>
#include <string_view>
#include <vector>

namespace nodo {
namespace {

const Date now = dateFromSeconds(1'769'847'300);
const Date farFuture = dateFromSeconds(4'000'000'000);

const AgentProcess agent{
    .pid = 12, .ppid = 3, .executable = "/bin/pi", .command = "pi\n\"x\"", .kind = AgentKind::pi};

NODOState fullState() {
  NODOState state = NODOState::fresh(now);
  state.manualUntil = farFuture;
  state.ownsSleepDisable = true;
  state.lastActivationReason = reason::manualLease;
  state.lastStopReason = reason::userStop;
  state.recordRequester({"Menu", std::nullopt, std::nullopt, now}, now - Seconds(120), 6, 200);
  state.recordRequester({"Codex", "api", "PreToolUse", now}, now, 6, 200);
  state.recordPowerOperation({true, true, std::nullopt, std::nullopt, "", ""}, now, "enable", 20);
  state.recordPowerOperation({true, false, "pmset -a disablesleep 1", 0, "", ""}, now, "enable:x",
                             20);
  state.powerOperationHistory.front().reason.reset();
  state.noRouteUnavailableSince = now;
  state.lidOpenedAt = now;
  state.lastLidClosed = false;
  state.seriousHeatSince = now;
  return state;
}

StatusReport fullStatus() {
  AgentProcess orphan = agent;
  orphan.ppid.reset();
  return {.generatedAt = now,
          .state = fullState(),
          .snapshot = {.now = now,
                       .powerSource = PowerSource::battery,
                       .batteryPercent = 15,
                       .defaultRouteAvailable = false,
                       .lidClosed = true,
                       .thermalPressure = ThermalPressure::serious,
                       .hotZone = HotZone{.name = "acpitz", .celsius = 91, .limitCelsius = 90},
                       .lowPowerMode = true},
          .agents = {agent, orphan},
          .decision = {.shouldPreventSleep = false,
                       .reasons = {reason::manualTimer},
                       .safetyBlocks = {reason::batteryBelowThreshold},
                       .stopReason = reason::batteryBelowThreshold},
          .manualRemainingSeconds = 7500,
          .noRouteGraceRemainingSeconds = 10,
          .heatGraceRemainingSeconds = 20};
}

StatusReport bareStatus() {
  StatusReport report;
  report.state = NODOState::fresh(now);
  return report;
}

DaemonRunReport fullRun() {
  const PowerOperationResult switched(false, false, "pmset -a disablesleep 0", 0, "out", "err");
  const PowerOperationResult simulated(false, true, std::nullopt, std::nullopt, "", "",
                                       PowerOperationAction::sleepNow);
  return {.generatedAt = now,
          .status = fullStatus(),
          .operation = switched,
          .operations = {switched, simulated},
          .stateChanged = true};
}

SleepDiagnosticsReport fullDiagnostics() {
  return SleepDiagnosticsInspector::parse(
      " SleepDisabled\t\t1\n sleep 1 (sleep prevented by x)\n displaysleep 10\n",
      "Assertion status system-wide:\n   PreventUserIdleSystemSleep    1\n   UserIsActive  0\n"
      "Listed by owning process:\n"
      "  pid 412(coreaudiod): [0x1] 00:05:10 PreventUserIdleSystemSleep named: \"Playing\"\n"
      "  pid 9(w): [0x2] 00:00:01 PreventUserIdleDisplaySleep named: \"\"\n"
      "  pid what is this\n",
      now);
}

std::vector<AgentHookInstallReport> reports() {
  std::vector<AgentHookInstallReport> all{
      {.target = "hook-script", .path = "/h/s", .changed = true, .message = "removed"}};
  for (const AgentHookTarget target : allCases<AgentHookTarget>()) {
    all.push_back({.target = std::string(rawValue(target)),
                   .path = "/h/x",
                   .changed = false,
                   .message = "failed",
                   .error = "no"});
  }
  return all;
}

std::vector<AgentProcess> agentsOfAllKinds() {
  std::vector<AgentProcess> all;
  for (const AgentKind kind : allCases<AgentKind>()) {
    all.push_back(agent);
    all.back().kind = kind;
  }
  return all;
}

AgentHookSetupInspection inspection() {
  AgentHookSetupInspection found{.hookScriptPath = "/h/s",
                                 .hookScriptStatus = AgentHookComponentStatus::outdated,
                                 .expectedHookScriptFingerprint = "0123456789abcdef",
                                 .installedHookScriptFingerprint = "fedcba9876543210"};
  for (const AgentHookComponentStatus status : allCases<AgentHookComponentStatus>()) {
    found.targets.push_back({AgentHookTarget::codex, "/h/x", status});
  }
  for (const AgentHookTarget target : allCases<AgentHookTarget>()) {
    found.targets.push_back({target, "/h/x", AgentHookComponentStatus::current});
  }
  found.targets.back().error = "no";
  return found;
}

std::vector<Finding> findingsOfAllKinds() {
  std::vector<Finding> all;
  for (const FindingKind kind : allCases<FindingKind>()) {
    for (const FindingSeverity severity : allCases<FindingSeverity>()) {
      all.push_back({.kind = kind, .severity = severity, .what = "what", .toDo = "to do"});
    }
  }
  return all;
}

void printInspections() {
  JSONValue full = encode(inspection());
  full.setMember("findings", encode(findingsOfAllKinds()));
  std::cout << "hook-inspection\t" << jsonText(full, JSONLayout::compact) << '\n';
  std::cout << "hook-inspection\t"
            << encodeJSON(
                   AgentHookSetupInspection{.expectedHookScriptFingerprint = "0000000000000000"},
                   JSONLayout::compact)
            << '\n';
}

template <class Document>
void print(std::string_view schema, const Document& document) {
  std::cout << schema << '\t' << encodeJSON(document, JSONLayout::compact) << '\n';
}

void printDoctorReports() {
  const AgentHookFallbackStatus fallback{
      .isActive = true, .logPath = "/tmp/log", .lastStartedAt = now, .fallbackSeconds = 300};
  const std::vector<Finding> found = findingsOfAllKinds();
  const auto printReport = [](const DoctorReport& report, const std::vector<Finding>& findings,
                              HeadlineKind kind) {
    const JSONValue document = encode(report, findings, {.kind = kind, .text = "text"});
    std::cout << "doctor-report\t" << jsonText(document, JSONLayout::compact) << '\n';
  };
  for (const HeadlineKind kind : allCases<HeadlineKind>()) {
    printReport({DoctorStatusSource::helper, fullStatus(), true, fallback, inspection()}, found,
                kind);
  }
  printReport({DoctorStatusSource::local, bareStatus(), {}, {}, {}}, {}, HeadlineKind::off);
  printReport({DoctorStatusSource::helper, bareStatus(), false, AgentHookFallbackStatus(), {}}, {},
              HeadlineKind::off);
}

void printMenuReports() {
  const auto printReport = [](const MenuReport& report, HeadlineKind kind) {
    const JSONValue document = encode(report, {.kind = kind, .text = "text"});
    std::cout << "menu-report\t" << jsonText(document, JSONLayout::compact) << '\n';
  };
  const SetupMenuSignals ready{.helperIsReady = true, .hooksAreReady = true};
  for (const double past : {0.0, 60.0, 3600.0, 7495.0}) {
    StatusReport report = fullStatus();
    report.state.manualUntil = now + Seconds(7500);
    printReport(MenuReport(report, DoctorStatusSource::helper, true, false,
                           {.helperNeedsInstall = true}, now + Seconds(past)),
                HeadlineKind::keptAwake);
  }
  MenuReport bare(bareStatus(), DoctorStatusSource::local, {}, false, ready, now);
  for (const MenuBarIconState state : allCases<MenuBarIconState>()) {
    bare.iconState = state;
    printReport(bare, HeadlineKind::off);
  }
}

void printHistoryReports() {
  StatusReport status = fullStatus();
  NODOState& state = status.state;
  const auto operate = [&state](double minutesAgo, bool disabled, const std::string& reason) {
    state.recordPowerOperation({disabled, false, "pmset -a disablesleep 1", 0, "", ""},
                               now - Seconds(minutesAgo * 60), reason, 20);
  };
  state.triggerHistory.erase(state.triggerHistory.begin());
  state.recordRequester({"Menu", std::nullopt, std::nullopt, now}, now, 6, 200);
  state.powerOperationHistory.clear();
  operate(90, false, "release:user_stop");
  operate(60, true, "enable:manual_timer");
  operate(50, true, "enable:manual_timer");
  operate(40, false, "release:battery_below_threshold");
  operate(30, true, "enable:manual_timer");
  state.powerOperationHistory.back().reason.reset();
  const Date since = now - Seconds(7200);
  print("history-report", HistoryReport(status, DoctorStatusSource::helper, since, now));
  print("history-report", HistoryReport(bareStatus(), DoctorStatusSource::local, since, now));
}

void printStatusReports() {
  print("status-report", fullStatus());
  StatusReport bare = bareStatus();
  for (const PowerSource source : allCases<PowerSource>()) {
    bare.snapshot.powerSource = source;
    print("status-report", bare);
  }
  for (const ThermalPressure pressure : allCases<ThermalPressure>()) {
    bare.snapshot.thermalPressure = pressure;
    print("status-report", bare);
  }
}

void printDocuments() {
  printStatusReports();
  print("daemon-run-report", fullRun());
  print("daemon-run-report", DaemonRunReport{.status = bareStatus()});
  print("sleep-diagnostics-report", fullDiagnostics());
  print("sleep-diagnostics-report", SleepDiagnosticsInspector::parse("", "", now));
  print("agents", fullStatus().agents);
  print("agents", agentsOfAllKinds());
  print("agents", std::vector<AgentProcess>());
  print("hook-install-reports", reports());
  printInspections();
  printDoctorReports();
  printMenuReports();
  printHistoryReports();
}

}  // namespace
}  // namespace nodo

int main(int argc, char** argv) {
  if (argc == 2 && std::string_view(argv[1]) == "--state") {
    std::cout << nodo::encodeJSON(nodo::fullState(), nodo::JSONLayout::pretty) << '\n';
  } else if (argc == 1) {
    nodo::printDocuments();
  } else {
    std::cerr << "usage: nodo_sample_documents [--state]\n";
    return 2;
  }
  std::cout << std::flush;
  return std::cout ? 0 : 1;
}
