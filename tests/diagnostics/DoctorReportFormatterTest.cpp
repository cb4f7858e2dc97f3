#include <NODOCore/base/Text.h>
#include <NODOCore/diagnostics/DoctorReport.h>
#include <testing/JSONRows.h>

#include <algorithm>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace nodo {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

using Lines = std::vector<std::string>;
using Source = DoctorStatusSource;
using Status = AgentHookComponentStatus;

const Date time = dateFromSeconds(1'769'847'300);  // 2026-01-31 08:15 UTC

ActivationRequester requester(const std::string& name,
                              const std::optional<std::string>& context = std::nullopt,
                              const std::optional<std::string>& event = std::nullopt) {
  return {name, context, event, time};
}

class DoctorReportFormatterTest : public ::testing::Test {
 protected:
  std::string text() const {
    return DoctorReportFormatter::format(report, source, live, fallback, inspection);
  }

  Lines lines() const {
    const std::string whole = text();
    const auto split = splitAtLineFeeds(whole);
    return {split.begin(), split.end()};
  }

  // The line of that name, and the lines that are its list.
  Lines block(const std::string& name) const {
    const Lines all = lines();
    auto line = std::find_if(all.begin(), all.end(),
                             [&](const auto& each) { return each.starts_with(name); });
    if (line == all.end()) {
      return {};
    }
    const auto end =
        std::find_if(line + 1, all.end(), [](const auto& each) { return !each.starts_with("- "); });
    return {line, end};
  }

  std::string operationLine(const PowerOperationAudit& operation) {
    report.state.lastPowerOperation = operation;
    return block("Last power operation").at(0);
  }

  StatusReport report;
  Source source = Source::helper;
  std::optional<bool> live;
  std::optional<AgentHookFallbackStatus> fallback;
  std::optional<AgentHookSetupInspection> inspection;
};

TEST_F(DoctorReportFormatterTest, WithNothingToSayOnlyTheLinesThatAreAlwaysThereRemain) {
  EXPECT_EQ(text(),
            "nodo doctor\n"
            "Status source: helper\n"
            "Status: inactive\n"
            "Timer: off\n"
            "Power lock: off\n"
            "macOS SleepDisabled: unknown\n"
            "Agents detected: 0\n"
            "Decision: allow sleep\n"
            "Ready: helper works; enable a manual timer or run an agent hook to test.");
}

TEST_F(DoctorReportFormatterTest, AllThereIsToSayStandsInItsOrder) {
  report.manualRemainingSeconds = 725;
  report.decision.shouldPreventSleep = true;
  report.state.lastStopReason = "user_stop";
  report.state.recentRequesters = {requester("Codex", "api", "PreToolUse"), requester("Menu")};
  report.state.lastRequester = report.state.recentRequesters.front();
  report.state.lastPowerOperation = PowerOperationAudit(PowerOperationAction::disableSleep, time,
                                                        "enable:manual_timer", false, 0, "pmset");
  report.agents = {{.pid = 12,
                    .ppid = 1,
                    .executable = "/bin/codex",
                    .command = "codex exec",
                    .kind = AgentKind::codex}};
  live = true;
  fallback = AgentHookFallbackStatus{.isActive = true, .logPath = "/tmp/hook.log"};
  inspection = AgentHookSetupInspection{
      .hookScriptPath = "/h/.nodo/hook.sh",
      .hookScriptStatus = Status::outdated,
      .expectedHookScriptFingerprint = "0123456789abcdef",
      .installedHookScriptFingerprint = "fedcba9876543210",
      .targets = {{AgentHookTarget::claude, "/h/.claude/settings.json", Status::current},
                  {AgentHookTarget::grok, "/h/.grok/hooks/nodo.json", Status::missing}}};
  EXPECT_EQ(text(),
            "nodo doctor\n"
            "Status source: helper\n"
            "Status: active\n"
            "Timer: 12m 5s remaining\n"
            "Power lock: off\n"
            "Hook fallback: active\n"
            "macOS SleepDisabled: on\n"
            "Warning: agent hook recently started fallback caffeinate (/tmp/hook.log); closed-lid "
            "sleep prevention is unavailable.\n"
            "Hook script: outdated\n"
            "Hook script path: /h/.nodo/hook.sh\n"
            "Hook script expected fingerprint: 0123456789abcdef\n"
            "Hook script installed fingerprint: fedcba9876543210\n"
            "Hook targets: 1/2 current\n"
            "- Claude Code: current (/h/.claude/settings.json)\n"
            "- Grok Build: missing (/h/.grok/hooks/nodo.json)\n"
            "Last request: Codex - api\n"
            "Last event: PreToolUse\n"
            "Last power operation: disable_sleep at 2026-01-31T08:15:00Z (enable:manual_timer, "
            "exit 0)\n"
            "Recent requests:\n"
            "- Codex - api (PreToolUse)\n"
            "- Menu\n"
            "Agents detected: 1\n"
            "- Codex pid=12 executable=/bin/codex\n"
            "Decision: prevent sleep\n"
            "Warning: nodo wants to prevent sleep, but the power lock is off.");
}

TEST_F(DoctorReportFormatterTest, ALocalReadingSaysSoWhateverElseHolds) {
  source = Source::local;
  report.state.ownsSleepDisable = true;
  live = true;
  EXPECT_THAT(lines(), Contains("Status source: local fallback"));
  EXPECT_EQ(lines().front(), "nodo doctor");
  EXPECT_EQ(lines().back(), "Warning: helper unavailable; closed-lid prevention will not work.");
}

TEST_F(DoctorReportFormatterTest, TheTimerIsAsTheReferenceValuesSay) {
  for (const JSONValue& row : test::testRows("vectors/durations.json")) {
    report.manualRemainingSeconds = test::valueOf<std::int64_t>(row, "seconds");
    const auto expected = test::valueOf<std::string>(row, "timerText");
    EXPECT_EQ(block("Timer: "), Lines{"Timer: " + expected});
    EXPECT_EQ(block("Status: "), Lines{expected == "off" ? "Status: inactive" : "Status: active"});
  }
}

TEST_F(DoctorReportFormatterTest, TheTimerChangesItsUnitsAtAMinuteAndAnHour) {
  const std::vector<std::pair<std::int64_t, std::string>> rows{
      {1, "1s"},         {59, "59s"},     {60, "1m 0s"},   {725, "12m 5s"},
      {3599, "59m 59s"}, {3600, "1h 0m"}, {7200, "2h 0m"}, {7260, "2h 1m"}};
  for (const auto& [seconds, expected] : rows) {
    report.manualRemainingSeconds = seconds;
    EXPECT_EQ(block("Timer: "), Lines{"Timer: " + expected + " remaining"});
  }
}

TEST_F(DoctorReportFormatterTest, WithoutATimerItIsActiveOnlyWhenTheDecisionPreventsSleep) {
  for (const std::optional<std::int64_t> remaining :
       {std::optional<std::int64_t>(), std::optional<std::int64_t>(0),
        std::optional<std::int64_t>(-5)}) {
    report.manualRemainingSeconds = remaining;
    for (const bool prevents : {false, true}) {
      report.decision.shouldPreventSleep = prevents;
      EXPECT_EQ(block("Timer: "), Lines{"Timer: off"});
      EXPECT_EQ(block("Status: "), Lines{prevents ? "Status: active" : "Status: inactive"});
      EXPECT_EQ(block("Decision: "),
                Lines{prevents ? "Decision: prevent sleep" : "Decision: allow sleep"});
    }
  }
}

TEST_F(DoctorReportFormatterTest, TheLiveSettingIsOnOffOrUnknown) {
  const std::vector<std::pair<std::optional<bool>, std::string>> rows{
      {true, "on"}, {false, "off"}, {std::nullopt, "unknown"}};
  for (const auto& [value, expected] : rows) {
    live = value;
    EXPECT_EQ(block("macOS"), Lines{"macOS SleepDisabled: " + expected});
  }
}

TEST_F(DoctorReportFormatterTest, AFallbackIsWarnedOfOnlyWhileItRunsAndNodoHoldsNoLock) {
  for (const bool active : {false, true}) {
    for (const bool owns : {false, true}) {
      fallback = AgentHookFallbackStatus{.isActive = active, .logPath = "/tmp/log"};
      report.state.ownsSleepDisable = owns;
      EXPECT_EQ(block("Hook fallback"),
                Lines{active ? "Hook fallback: active" : "Hook fallback: inactive"});
      EXPECT_EQ(block("Power lock"), Lines{owns ? "Power lock: on" : "Power lock: off"});
      EXPECT_EQ(block("Warning: agent hook").size(), active && !owns ? 1U : 0U);
    }
  }
}

TEST_F(DoctorReportFormatterTest, AScriptThatCannotBeReadHasNoInstalledFingerprint) {
  inspection = AgentHookSetupInspection{.hookScriptPath = "/h/hook.sh",
                                        .hookScriptStatus = Status::notExecutable,
                                        .expectedHookScriptFingerprint = "00"};
  EXPECT_THAT(text(), HasSubstr("Hook script: not executable\n"
                                "Hook script path: /h/hook.sh\n"
                                "Hook script expected fingerprint: 00\n"
                                "Hook targets: 0/0 current\n"
                                "Agents detected: 0\n"));
}

TEST_F(DoctorReportFormatterTest, EveryTargetIsNamedWithItsStatus) {
  inspection =
      AgentHookSetupInspection{.targets = {{AgentHookTarget::pi, "/p", Status::outdated},
                                           {AgentHookTarget::codex, "/c", Status::notExecutable}}};
  EXPECT_EQ(block("Hook targets"), (Lines{"Hook targets: 0/2 current", "- Pi: outdated (/p)",
                                          "- Codex: not executable (/c)"}));
}

TEST_F(DoctorReportFormatterTest, ARequestWithoutContextOrEventHasNeither) {
  report.state.lastRequester = requester("Pi");
  EXPECT_EQ(block("Last request"), Lines{"Last request: Pi"});
  EXPECT_EQ(block("Last event"), Lines());
  report.state.lastRequester = requester("Pi", "web", "turn_end");
  EXPECT_EQ(block("Last request"), Lines{"Last request: Pi - web"});
  EXPECT_EQ(block("Last event"), Lines{"Last event: turn_end"});
}

TEST_F(DoctorReportFormatterTest, APowerOperationEndsInWhyAndInHowItWent) {
  using Action = PowerOperationAction;
  const std::string at = " at 2026-01-31T08:15:00Z ";
  const std::string line = "Last power operation: ";
  EXPECT_EQ(operationLine({Action::disableSleep, time, std::nullopt, false, std::nullopt, {}}),
            line + "disable_sleep" + at + "(exit unknown)");
  EXPECT_EQ(operationLine({Action::disableSleep, time, "lid closed", false, 0, {}}),
            line + "disable_sleep" + at + "(lid closed, exit 0)");
  EXPECT_EQ(operationLine({Action::enableSleep, time, "release", true, std::nullopt, "pmset"}),
            line + "enable_sleep" + at + "(release, dry-run)");
  EXPECT_EQ(operationLine({Action::sleepNow, time, std::nullopt, true, std::nullopt, {}}),
            line + "sleep_now" + at + "(dry-run)");
  EXPECT_EQ(operationLine({Action::enableSleep, time, std::nullopt, true, -9, {}}),
            line + "enable_sleep" + at + "(exit -9)");
  EXPECT_EQ(operationLine({Action::disableSleep, dateFromSeconds(-0.5), "x", false, 1, {}}),
            line + "disable_sleep at 1969-12-31T23:59:59Z (x, exit 1)");
}

TEST_F(DoctorReportFormatterTest, OneRecentRequestIsNotListedAgain) {
  report.state.recentRequesters = {requester("Codex")};
  EXPECT_EQ(block("Recent requests"), Lines());
}

TEST_F(DoctorReportFormatterTest, OfNineRecentRequestsTheFirstSixAreListed) {
  for (int index = 1; index <= 9; ++index) {
    report.state.recentRequesters.push_back(requester("agent " + std::to_string(index)));
  }
  EXPECT_EQ(block("Recent requests"), (Lines{"Recent requests:", "- agent 1", "- agent 2",
                                             "- agent 3", "- agent 4", "- agent 5", "- agent 6"}));
}

TEST_F(DoctorReportFormatterTest, AgentsAreListedInTheReportsOrder) {
  report.agents = {
      {.pid = 9, .ppid = {}, .executable = "grok", .command = "", .kind = AgentKind::grokBuild},
      {.pid = 4,
       .ppid = {},
       .executable = "/a b/claude",
       .command = "",
       .kind = AgentKind::claudeCode},
      {.pid = 7, .ppid = {}, .executable = "pi", .command = "", .kind = AgentKind::pi}};
  EXPECT_EQ(block("Agents detected"),
            (Lines{"Agents detected: 3", "- Grok Build pid=9 executable=grok",
                   "- Claude Code pid=4 executable=/a b/claude", "- Pi pid=7 executable=pi"}));
}

TEST_F(DoctorReportFormatterTest, NothingFromOutsideCanAddALineOrReachTheTerminal) {
  const std::string hostile = "x\nStatus: active\n\x1B[2J\xFF";
  report.agents = {
      {.pid = 1, .ppid = {}, .executable = hostile, .command = "", .kind = AgentKind::pi}};
  report.state.lastRequester = requester("n");
  report.state.lastRequester->name = hostile;
  report.state.lastRequester->event = hostile;
  report.state.recentRequesters = {*report.state.lastRequester, *report.state.lastRequester};
  report.state.lastPowerOperation =
      PowerOperationAudit(PowerOperationAction::sleepNow, time, hostile, false, 0, {});
  fallback = AgentHookFallbackStatus{.isActive = true, .logPath = hostile};
  inspection = AgentHookSetupInspection{.hookScriptPath = hostile,
                                        .expectedHookScriptFingerprint = "00",
                                        .targets = {{AgentHookTarget::pi, hostile, {}}}};
  EXPECT_EQ(lines().size(), 23U);
  EXPECT_THAT(lines(), Not(Contains(AllOf(StartsWith("Status:"), Not("Status: inactive")))));
  EXPECT_EQ(block("Hook script path"),
            Lines{"Hook script path: x\\nStatus: active\\n\\u{1b}[2J\xEF\xBF\xBD"});
  EXPECT_THAT(text(), Not(HasSubstr("\x1B")));
}

TEST(DoctorRepairResultTest, ARepairThatEndedEverythingSaysSo) {
  StatusReport report;
  report.state.lastStopReason = "repair";
  report.decision.stopReason = "not_armed";
  EXPECT_EQ(DoctorReportFormatter::formatRepairResult(report, DoctorStatusSource::local),
            "Repair finished via local fallback.\n"
            "Status: inactive\n"
            "Power lock: off\n"
            "Timer: off\n"
            "Last stop reason: repair\n"
            "nodo is not preventing sleep.");
}

TEST(DoctorRepairResultTest, ARepairAfterWhichSleepIsStillPreventedSaysSo) {
  StatusReport report;
  report.state.ownsSleepDisable = true;
  report.decision.shouldPreventSleep = true;
  report.manualRemainingSeconds = 725;
  EXPECT_EQ(DoctorReportFormatter::formatRepairResult(report, DoctorStatusSource::helper),
            "Repair finished via helper.\n"
            "Status: active\n"
            "Power lock: on\n"
            "Timer: 12m 5s remaining\n"
            "nodo still wants to prevent sleep.");
}

TEST(DoctorRepairResultTest, TheClosingSentenceLooksAtTheDecisionAlone) {
  StatusReport report;
  report.manualRemainingSeconds = 1;
  const std::string text =
      DoctorReportFormatter::formatRepairResult(report, DoctorStatusSource::helper);
  EXPECT_NE(text.find("Status: active\n"), std::string::npos);
  EXPECT_TRUE(text.ends_with("nodo is not preventing sleep."));
}

TEST(DoctorRepairResultTest, ATimerWithoutATimeLeftIsOff) {
  for (const std::optional<std::int64_t> remaining :
       {std::optional<std::int64_t>(), std::optional<std::int64_t>(0),
        std::optional<std::int64_t>(-1)}) {
    StatusReport report;
    report.manualRemainingSeconds = remaining;
    const std::string text =
        DoctorReportFormatter::formatRepairResult(report, DoctorStatusSource::helper);
    EXPECT_NE(text.find("Status: inactive\nPower lock: off\nTimer: off\n"), std::string::npos);
  }
}

TEST(DoctorRepairResultTest, AStopReasonCannotAddALine) {
  StatusReport report;
  report.state.lastStopReason = "repair\nnodo still wants to prevent sleep.";
  const std::string text =
      DoctorReportFormatter::formatRepairResult(report, DoctorStatusSource::helper);
  EXPECT_TRUE(
      text.ends_with("Last stop reason: repair\\nnodo still wants to prevent sleep.\n"
                     "nodo is not preventing sleep."))
      << text;
}

}  // namespace
}  // namespace nodo
