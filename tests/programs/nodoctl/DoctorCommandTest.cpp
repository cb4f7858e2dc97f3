#include <NODOCore/base/Environment.h>
#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/diagnostics/DoctorReport.h>
#include <NODOCore/hooks/HookPause.h>
#include <NODOCore/presentation/SetupMenu.h>
#include <programs/nodoctl/commands/Health.h>
#include <testing/EnvironmentVariable.h>
#include <testing/OpenDescriptors.h>

#include <gmock/gmock.h>

#include <tests/programs/nodoctl/ToolFixture.h>

namespace nodo::nodoctl {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

class DoctorCommandTest : public ToolFixture {
 protected:
  const test::EnvironmentVariable zone{"TZ", "UTC0"};

  // A daemon that holds the lock for a timer.
  void startBusyDaemon() {
    startDaemon();
    helper->status.state.manualUntil = now + Seconds(600);
    helper->status.manualRemainingSeconds = 600;
    helper->status.state.ownsSleepDisable = true;
    helper->status.decision.shouldPreventSleep = true;
    diagnostics.report.sleepDisabled = true;
  }

  static SleepBlocker holder(const std::string& name, const std::string& type,
                             SleepBlockerScope scope, std::int64_t pid = 412) {
    return {.pid = pid,
            .processName = name,
            .assertionType = type,
            .assertionName = "because\x1b[1m",
            .scope = scope};
  }
};

TEST_F(DoctorCommandTest, AHealthyMachineIsReady) {
  startBusyDaemon();
  const Outcome outcome = run({"doctor"});
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_EQ(outcome.error, "");
  EXPECT_THAT(outcome.output, StartsWith("nodo doctor\nStatus source: helper\nStatus: active\n"
                                         "Timer: 10m 0s remaining\nPower lock: on\n"
                                         "Hook fallback: inactive\nmacOS SleepDisabled: on\n"
                                         "Hook script: missing\n"));
  EXPECT_THAT(
      outcome.output,
      EndsWith("\nReady: nodo owns the macOS power lock.\n"
               "\nNote: No agent is set up yet.\n"
               "  'nodoctl hooks install' makes agents keep this computer awake while they work.\n"
               "Kept awake until 08:25 (10 min left).\n"));
}

TEST_F(DoctorCommandTest, AWarningIsAFailureThatIsToldOnStandardOutput) {
  startBusyDaemon();
  diagnostics.report.sleepDisabled = false;
  const Outcome outcome = run({"doctor"});
  EXPECT_EQ(outcome.exitStatus, 1);
  EXPECT_EQ(outcome.error, "");
  EXPECT_THAT(
      outcome.output,
      EndsWith("\nWarning: nodo state says locked, but macOS SleepDisabled is off.\n"
               "\nProblem: The timer runs, and the sleep lock of nodo is not in force.\n"
               "  The daemon tries again every minute; its log says why it fails.\n"
               "Note: No agent is set up yet.\n"
               "  'nodoctl hooks install' makes agents keep this computer awake while they work.\n"
               "NOT kept awake by nodo, although the timer runs until 08:25 (10 min left): "
               "somebody has switched the sleep lock off.\n"));
}

TEST_F(DoctorCommandTest, WithoutADaemonItSaysWhyAndWarns) {
  const Outcome outcome = run({"doctor"});
  EXPECT_EQ(outcome.exitStatus, 1);
  EXPECT_TRUE(outcome.saidLocal);
  EXPECT_EQ(outcome.error, "");
  EXPECT_THAT(outcome.output, HasSubstr("\nStatus source: local fallback\n"));
  EXPECT_THAT(
      outcome.output,
      EndsWith("Warning: helper unavailable; closed-lid prevention will not work.\n"
               "\nProblem: Nothing can be asked of the daemon: nobody there.\n"
               "  Install the package nodo, or start it: 'sudo restart'.\n"
               "Note: No agent is set up yet.\n"
               "  'nodoctl hooks install' makes agents keep this computer awake while they work.\n"
               "NOT kept awake by this: nobody there.\n"));
}

TEST_F(DoctorCommandTest, TheSettingAndTheHooksAreThisMachinesWhateverTheSource) {
  diagnostics.report.sleepDisabled = true;
  run({"hooks", "install", "claude"});
  for (const bool daemon : {false, true}) {
    if (daemon) {
      startDaemon();
    }
    const Outcome outcome = run({"doctor"});
    EXPECT_THAT(outcome.output, HasSubstr("\nmacOS SleepDisabled: on\n"));
    EXPECT_THAT(outcome.output, HasSubstr("\nHook script: current\n"));
    EXPECT_THAT(outcome.output, HasSubstr("\nHook targets: 1/4 current\n"));
  }
}

TEST_F(DoctorCommandTest, TheDocumentHoldsTheSameFacts) {
  startBusyDaemon();
  const auto report =
      decodeJSON<DoctorReport>(jsonText(runJSON({"doctor", "--json"}), JSONLayout::compact));
  EXPECT_THAT(run({"doctor"}).output, StartsWith(report.text() + "\n\n"));
  EXPECT_EQ(report.verdict, DoctorVerdict::locked);
}

TEST_F(DoctorCommandTest, ASourceThatFailsIsALineAndNoMore) {
  startBusyDaemon();
  diagnosticsFail = true;
  const Outcome outcome = run({"doctor"});
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_EQ(outcome.error, "nodoctl: what affects sleep cannot be read: broken\n");
  EXPECT_THAT(outcome.output, HasSubstr("\nmacOS SleepDisabled: unknown\n"));
  EXPECT_THAT(outcome.output, HasSubstr("\nReady: nodo owns the macOS power lock.\n\nNote: "));
  EXPECT_THAT(outcome.output, HasSubstr("\nProbably kept awake until 08:25 (10 min left): "));
}

TEST_F(DoctorCommandTest, AnAgentsFileThatCannotBeReadIsFoundAndHidesNoOther) {
  startBusyDaemon();
  folder.write(".claude/settings.json", "{");
  const Outcome outcome = run({"doctor"});
  EXPECT_EQ(outcome.exitStatus, 1);
  EXPECT_EQ(outcome.error, "");
  EXPECT_THAT(outcome.output, HasSubstr("\nHook targets: 0/3 current\n- Codex: missing ("));
  EXPECT_THAT(outcome.output,
              HasSubstr("Ready: nodo owns the macOS power lock.\n\nProblem: It is not known "
                        "whether Claude Code runs hooks: " +
                        (folder / ".claude/settings.json").string()));
  EXPECT_THAT(run({"menu"}).output, HasSubstr("Setup: hooks failed"));
}

TEST_F(DoctorCommandTest, HooksThatDoNotRunAreAWarning) {
  startBusyDaemon();
  folder.write(".claude/settings.json", R"({"disableAllHooks": true})");
  startedAs = "/bin/sh";
  run({"hooks", "install", "claude"});
  const Outcome outcome = run({"doctor", "--json"});
  EXPECT_EQ(outcome.exitStatus, 1);
  const auto found = decodeJSON<std::vector<Finding>>(
      jsonText(*JSONValue::parse(outcome.output).member("findings"), JSONLayout::compact));
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found[0].kind, FindingKind::hooksSwitchedOff);
}

TEST_F(DoctorCommandTest, AnAgentThatRunsForLongAndAsksForNothingIsFound) {
  startBusyDaemon();
  helper->status.state.createdAt = now - Seconds(24 * 3600);
  helper->status.agents = {{.pid = 412, .kind = AgentKind::claudeCode}};
  startedAs = "/bin/sh";
  agentsAge = Seconds(45 * 60);
  const auto finding =
      HasSubstr("\nNote: Claude Code (pid 412) has run for 45 minutes and asked for nothing.\n");
  EXPECT_THAT(run({"doctor"}).output, Not(finding)) << "no hooks are installed";
  run({"hooks", "install", "claude"});
  EXPECT_THAT(run({"doctor"}).output, finding);
  EXPECT_EQ(run({"doctor"}).exitStatus, 0) << "it may have had nothing to do";
  agentsAge.reset();
  EXPECT_THAT(run({"doctor"}).output, Not(finding));
  agentsAge = Seconds(45 * 60);
  helper->status.state.recordRequester({"Claude Code", std::nullopt, std::nullopt, now}, now, 6, 9);
  EXPECT_THAT(run({"doctor"}).output, Not(finding));
  EXPECT_THAT(run({"doctor", "--verbose"}).output, HasSubstr("\nAsked last: Claude Code "));
}

TEST_F(DoctorCommandTest, WhoeverCannotAskIsNotCalledSilent) {
  startBusyDaemon();
  helper->status.state.createdAt = now - Seconds(24 * 3600);
  helper->status.agents = {{.pid = 412, .kind = AgentKind::claudeCode}};
  agentsAge = Seconds(45 * 60);
  folder.write(".claude/settings.json", R"({"disableAllHooks": true})");
  startedAs = "/bin/sh";
  run({"hooks", "install", "claude"});
  EXPECT_THAT(run({"doctor"}).output, Not(HasSubstr("asked for nothing")));
  folder.write(".claude/settings.json", "{}");
  run({"hooks", "install", "claude"});
  EXPECT_THAT(run({"doctor"}).output, HasSubstr("asked for nothing"));
  pauseHooks(folder.path(), now + Seconds(3600));
  EXPECT_THAT(run({"doctor"}).output, Not(HasSubstr("asked for nothing")));
}

TEST_F(DoctorCommandTest, NothingBelowTheReportOrOnStandardErrorPassesForALineOfIt) {
  startBusyDaemon();
  const std::string searched[] = {"Status source: local fallback", "Status: active",
                                  "macOS SleepDisabled: on"};
  const std::string hostile = searched[0] + "\n" + searched[1] + "\n" + searched[2];
  folder.write(".claude/settings.json", "{}");
  folder.write(".codex/hooks.json", "{}");
  startedAs = "/bin/sh";
  run({"hooks", "install"});
  environment["CLAUDE_CONFIG_DIR"] = "/" + hostile;
  environment["CODEX_HOME"] = "/" + hostile;
  environment["NODO_HOOK_LOG"] = (folder / hostile).string();
  environment["NODO_STATE_DIR"] = (folder / hostile).string();
  diagnostics.report.blockers = {holder(hostile, hostile, SleepBlockerScope::systemSleep)};
  diagnostics.report.blockers[0].assertionName = hostile;
  diagnostics.hint = hostile;
  diagnostics.report.sleepDisabled = false;
  const Outcome outcome = run({"doctor", "--verbose"});
  const std::string end = "macOS SleepDisabled is off.\n";
  ASSERT_THAT(outcome.output, HasSubstr(end));
  const std::string below = outcome.output.substr(outcome.output.find(end) + end.size());
  ASSERT_THAT(below, HasSubstr("CODEX_HOME"));
  ASSERT_THAT(outcome.error, HasSubstr("local fallback"));
  for (const std::string& text : searched) {
    EXPECT_THAT(below, Not(HasSubstr(text)));
    EXPECT_THAT(outcome.error, Not(HasSubstr(text)));
  }
}

TEST_F(DoctorCommandTest, WhenEverySourceFailsThereIsStillAReport) {
  environment.erase("HOME");
  diagnosticsFail = true;
  machine->listingFails = true;
  machine->snapshotFails = true;
  const Outcome outcome = run({"doctor"});
  EXPECT_EQ(outcome.exitStatus, 1);
  EXPECT_TRUE(outcome.saidLocal);
  for (const char* line :
       {"nodoctl: what affects sleep cannot be read: broken\n",
        "nodoctl: the agents' hooks cannot be inspected: HOME is not set\n",
        "nodoctl: Unable to resolve nodo state directory; set HOME or NODO_STATE_DIR\n",
        "nodoctl: no agents can be found: Unable to list processes: broken\n",
        "nodoctl: power, network and lid cannot be read: Unable to run fake: "}) {
    EXPECT_THAT(outcome.error, HasSubstr(line));
  }
  EXPECT_THAT(outcome.output, HasSubstr("\nStatus: inactive\n"));
  EXPECT_THAT(outcome.output, HasSubstr("will not work.\n\nProblem: "));
  EXPECT_THAT(outcome.output, EndsWith("NOT kept awake by this: nobody there.\n"));
}

TEST_F(DoctorCommandTest, AStateThatCannotBeReadIsNamedAndLeftAsItIs) {
  folder.write(".nodo/state.json", "[");
  const Outcome outcome = run({"doctor", "--json"});
  EXPECT_EQ(outcome.exitStatus, 1);
  EXPECT_NO_THROW(JSONValue::parse(outcome.output));
  EXPECT_THAT(outcome.error,
              HasSubstr("nodoctl: the state file " + (folder / ".nodo/state.json").string() +
                        " cannot be read: "));
  EXPECT_EQ(folder.read(".nodo/state.json"), "[");
}

TEST_F(DoctorCommandTest, ADaemonThatRefusesThisUserIsAFailure) {
  startBusyDaemon();
  standing.refusal = "only for ada";
  const Outcome outcome = run({"doctor", "--bus", "session", "--helper-timeout", "20"});
  EXPECT_EQ(outcome.exitStatus, 1);
  EXPECT_THAT(outcome.output,
              HasSubstr("\nReady: nodo owns the macOS power lock.\n\n"
                        "Problem: The daemon refuses requests of this user: only for ada.\n"));
  ASSERT_EQ(standingAskedFor.size(), 1);
  EXPECT_EQ(standingAskedFor[0].first, "session");
  EXPECT_GT(standingAskedFor[0].second, Seconds(0));
  EXPECT_LE(standingAskedFor[0].second, Seconds(20));
}

TEST_F(DoctorCommandTest, ADaemonOfAUsersOwnThatDoesNotProtectIsAFailure) {
  startBusyDaemon();
  standing.letsItsUserSleep = true;
  const Outcome outcome = run({"doctor"});
  EXPECT_EQ(outcome.exitStatus, 1);
  EXPECT_THAT(outcome.output, HasSubstr("\nProblem: The daemon is not the system's"));
}

TEST_F(DoctorCommandTest, OnlyADaemonThatAnswersAndOnlyForTheDoctorIsAskedForMore) {
  standing.refusal = "only for ada";
  EXPECT_THAT(run({"doctor"}).output, Not(HasSubstr("only for ada")));
  startBusyDaemon();
  run({"menu"});
  EXPECT_EQ(standingAskedFor.size(), 0);
}

TEST_F(DoctorCommandTest, VerboseAddsBelowTheReport) {
  startBusyDaemon();
  helper->status.snapshot.powerSource = PowerSource::battery;
  helper->status.snapshot.batteryPercent = 81;
  helper->status.snapshot.lidClosed = true;
  helper->status.snapshot.thermalPressure = ThermalPressure::serious;
  helper->status.snapshot.hotZone =
      HotZone{.name = "acpitz\x1b", .celsius = 91, .limitCelsius = 90};
  helper->status.snapshot.lowPowerMode = true;
  helper->status.heatGraceRemainingSeconds = 80;
  diagnostics.report.blockers = {
      holder("player", "PreventUserIdleSystemSleep", SleepBlockerScope::systemSleep),
      holder("nodo", "sleep:handle-lid-switch", SleepBlockerScope::systemSleep, 77),
      holder("screen", "PreventUserIdleDisplaySleep", SleepBlockerScope::displaySleep)};
  diagnostics.lockHolder = 77;
  const std::string plain = run({"doctor"}).output;
  const std::string verbose = run({"doctor", "--verbose"}).output;
  const std::string headline = "Kept awake until 08:25 (10 min left).\n";
  ASSERT_THAT(plain, EndsWith("\n" + headline));
  const std::size_t before = plain.size() - headline.size();
  ASSERT_THAT(verbose, StartsWith(plain.substr(0, before)));
  EXPECT_EQ(verbose.substr(before),
            "\n"
            "Others that hold up sleep:\n"
            "- player pid=412: because\\u{1b}[1m (PreventUserIdleSystemSleep)\n"
            "Power:      battery at 81 %, low power mode\n"
            "Network:    unknown\n"
            "Lid:        closed\n"
            "Heat:       acpitz\\u{1b} at 91 °C, limit 90 °C, sleep will be allowed in 1m 20s\n"
            "Asked last: no agent, as far as is known\n"
            "Settings:   unknown, as the daemon does not tell\n"
            "Own state:  " +
                (folder / ".nodo/state.json").string() +
                "\nHook log:   " + (folder / "hook.log").string() + "\nnodoctl:    version " +
                std::string(version()) + "\n\n" + headline);
}

TEST_F(DoctorCommandTest, SettingsThatHoldAreShownAndThoseThatDoNotAreFound) {
  startBusyDaemon();
  standing.settings = SettingsReport(EffectiveSettings{
      .settings = {}, .file = "/etc/f.toml", .problems = {"/etc/f.toml: broken"}});
  const Outcome outcome = run({"doctor", "--verbose"});
  EXPECT_EQ(outcome.exitStatus, 1);
  EXPECT_THAT(outcome.output,
              HasSubstr("\nSettings:   of the daemon, from its options and /etc/f.toml\n"
                        "            minimum-battery = 20\n"));
  EXPECT_THAT(outcome.output,
              HasSubstr("The daemon does not heed all of its settings: /etc/f.toml: broken."));
}

TEST_F(DoctorCommandTest, SettingsThatAreKnownAreNotAskedForAgainForTheirLimits) {
  startBusyDaemon();
  helper->status.decision = {.safetyBlocks = {reason::batteryBelowThreshold}};
  helper->status.snapshot.batteryPercent = 15;
  standing.settings = SettingsReport(EffectiveSettings());
  EXPECT_THAT(run({"doctor"}).output, HasSubstr("battery at 15 % (limit 20 %)"));
  EXPECT_EQ(settingsAsked, 0);
}

TEST_F(DoctorCommandTest, WhoeverOnlyBearsTheNameIsNoLessAnother) {
  startBusyDaemon();
  diagnostics.report.blockers = {
      holder("nodo", "sleep:handle-lid-switch", SleepBlockerScope::systemSleep)};
  diagnostics.lockHolder = 77;
  EXPECT_THAT(run({"doctor", "--verbose"}).output, HasSubstr("\n- nodo pid=412: "));
  diagnostics.lockHolder.reset();
  EXPECT_THAT(run({"doctor", "--verbose"}).output, HasSubstr("\n- nodo pid=412: "));
}

TEST_F(DoctorCommandTest, VerboseTellsNobodyFromNothingKnown) {
  startDaemon();
  diagnostics.report.sleepDisabled = false;
  EXPECT_THAT(run({"doctor", "--verbose"}).output,
              HasSubstr("\nOthers that hold up sleep: none\n"));
  diagnosticsFail = true;
  EXPECT_THAT(run({"doctor", "--verbose"}).output,
              HasSubstr("\nOthers that hold up sleep: unknown\n"));
}

TEST_F(DoctorCommandTest, TheSetupLineFollowsFromTheFacts) {
  HealthFacts facts;
  AgentHookSetupInspection hooks;
  const auto lineFor = [&] {
    facts.forFindings.hooks = hooks;
    return SetupMenuPresentation::setupLine(setupSignals(facts)).value_or("none");
  };
  const auto advice = [&] { return setupAdvice(setupSignals(facts), "restart"); };
  using Status = AgentHookComponentStatus;
  hooks.hookScriptStatus = Status::current;
  hooks.targets = {{.target = AgentHookTarget::claude, .path = "", .status = Status::current},
                   {.target = AgentHookTarget::codex, .path = "", .status = Status::current}};
  EXPECT_EQ(lineFor(), "none");
  EXPECT_EQ(advice(), "");
  EXPECT_TRUE(setupSignals(facts).isSetupComplete());
  facts.forFindings.unreadableHooks = {{.target = AgentHookTarget::pi, .path = "", .error = "no"}};
  EXPECT_EQ(lineFor(), "Setup: hooks failed");
  EXPECT_EQ(advice(), "nodoctl doctor");
  facts.forFindings.unreadableHooks.clear();
  hooks.targets[1].status = Status::missing;
  EXPECT_EQ(lineFor(), "Setup: hooks 1/2");
  EXPECT_EQ(advice(), "nodoctl hooks install");
  hooks.targets[0].status = Status::missing;
  EXPECT_EQ(lineFor(), "Setup: install hooks");
  hooks.targets[0].status = Status::outdated;
  EXPECT_EQ(lineFor(), "Hooks update available");
  hooks.targets = {{.target = AgentHookTarget::pi, .path = "", .status = Status::current}};
  hooks.hookScriptStatus = Status::notExecutable;
  EXPECT_EQ(lineFor(), "Setup: install hooks");
  facts.status.report.decision.shouldPreventSleep = true;
  EXPECT_EQ(lineFor(), "Power lock: pending");
  EXPECT_EQ(advice(), "nodoctl doctor");
  facts.status.report.state.ownsSleepDisable = true;
  EXPECT_EQ(lineFor(), "Setup: install hooks");
  facts.status.unavailable.emplace();
  EXPECT_EQ(lineFor(), "Setup: install helper");
  EXPECT_EQ(advice(), "install the package nodo, or restart");
  facts.forFindings.daemonIsThere = true;
  EXPECT_EQ(lineFor(), "Setup: repair helper");
  EXPECT_EQ(advice(), "restart");
  facts.status.unavailable.reset();
  facts.forFindings.hooks.reset();
  EXPECT_EQ(SetupMenuPresentation::setupLine(setupSignals(facts)), "Setup: hooks failed");
}

TEST_F(DoctorCommandTest, HealthChecksLeaveNothingOpen) {
  startDaemon();
  run({"doctor"});
  const auto before = test::openDescriptors();
  run({"doctor"});
  EXPECT_EQ(test::openDescriptors(), before);
}

}  // namespace
}  // namespace nodo::nodoctl
