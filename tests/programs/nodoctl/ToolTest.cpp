#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/control/Reports.h>
#include <testing/DiskFull.h>

#include <algorithm>

#include <gmock/gmock.h>

#include <tests/programs/nodoctl/FakeTerminal.h>
#include <tests/programs/nodoctl/ToolFixture.h>

namespace nodo::nodoctl {
namespace {

class ToolTest : public ToolFixture {};

TEST_F(ToolTest, StatusIsShownAsTextAndAsJSON) {
  const Outcome text = run({"status"});
  EXPECT_EQ(text.exitStatus, 0);
  EXPECT_EQ(text.error, "");
  EXPECT_EQ(text.output,
            "NOT kept awake by this: nobody there.\n"
            "Your own state, which switches no sleep lock:\n"
            "Decision:   allow sleep (no timer runs)\n"
            "Timer:      off\n"
            "Sleep lock: off\n"
            "Power:      mains\n"
            "Network:    default route\n"
            "Lid:        unknown\n"
            "Agents:     0\n");
  const JSONValue json = runJSON({"status", "--json"});
  EXPECT_EQ(*json.member("generatedAt")->text(), "2026-01-31T08:15:00Z");
  EXPECT_EQ(*json.member("decision")->member("stopReason")->text(), "not_armed");
}

TEST_F(ToolTest, TheKeysOfAReportKeepTheirOrder) {
  const JSONValue json = runJSON({"manual", "--minutes", "5", "--json"});
  std::vector<std::string> keys;
  for (const auto& member : *json.object()) {
    keys.push_back(member.first);
  }
  EXPECT_EQ(keys, (std::vector<std::string>{"generatedAt", "state", "snapshot", "agents",
                                            "decision", "manualRemainingSeconds"}));
}

TEST_F(ToolTest, AStartedTimerIsShownWithItsRequester) {
  const Outcome outcome = run({"manual", "--minutes", "20", "--requester", "Claude Code",
                               "--context", "project (94389d89)", "--event", "PreToolUse"});
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_EQ(outcome.output,
            "NOT kept awake by this: nobody there.\n"
            "Your own state, which switches no sleep lock:\n"
            "Decision:   prevent sleep (the timer runs)\n"
            "Timer:      20 min left\n"
            "Sleep lock: off\n"
            "Requester:  Claude Code - project (94389d89) (PreToolUse)\n"
            "Power:      mains\n"
            "Network:    default route\n"
            "Lid:        unknown\n"
            "Agents:     0\n");
}

TEST_F(ToolTest, AnExtensionNeverShortensARunningTimer) {
  run({"manual", "--minutes", "60"});
  advance(10);
  const JSONValue json =
      runJSON({"manual", "--minutes", "5", "--extend-only", "--requester", "Codex", "--json"});
  EXPECT_EQ(json.member("manualRemainingSeconds")->number()->digits, "3590");
  EXPECT_EQ(*json.member("state")->member("lastRequester")->member("name")->text(), "Codex");
}

TEST_F(ToolTest, ATimerWithoutRequesterHasNone) {
  const JSONValue json = runJSON({"manual", "--minutes", "5", "--json"});
  EXPECT_EQ(json.member("state")->member("lastRequester"), nullptr);
}

TEST_F(ToolTest, AContextAloneBelongsToAnUnknownRequester) {
  const JSONValue json = runJSON({"manual", "--minutes", "5", "--context", "x", "--json"});
  EXPECT_EQ(*json.member("state")->member("lastRequester")->member("name")->text(), "Unknown");
}

TEST_F(ToolTest, AValueMayLookLikeAnOption) {
  const JSONValue json = runJSON({"manual", "--minutes", "5", "--requester", "--json", "--context",
                                  "-odd (1)", "--event=--help", "--json"});
  const JSONValue& requester = *json.member("state")->member("lastRequester");
  EXPECT_EQ(*requester.member("name")->text(), "--json");
  EXPECT_EQ(*requester.member("context")->text(), "-odd (1)");
  EXPECT_EQ(*requester.member("event")->text(), "--help");
}

TEST_F(ToolTest, ControlCharactersFromOutsideAreShownEscaped) {
  machine->processes = {
      {.pid = 5, .ppid = 1, .executable = "claude", .command = "claude \x1b[2J\nroot"}};
  const Outcome agents = run({"agents"});
  EXPECT_EQ(agents.output,
            "    PID  AGENT        COMMAND\n"
            "      5  Claude Code  claude \\u{1b}[2J\\nroot\n");
  const Outcome status = run({"manual", "--minutes", "5", "--requester", "a\x1b]0;x\x07z"});
  EXPECT_NE(status.output.find("Requester:  a\\u{1b}]0;x\\u{7}z\n"), std::string::npos);
}

TEST_F(ToolTest, AgentsAreAnArrayInJSON) {
  EXPECT_EQ(run({"agents"}).output, "No coding agents are running.\n");
  EXPECT_EQ(run({"agents", "--json"}).output, "[]\n");
  machine->startAgent(4711);
  const JSONValue json = runJSON({"agents", "--json"});
  ASSERT_EQ(json.array()->size(), 1U);
  EXPECT_EQ(*json.array()->front().member("kind")->text(), "claudeCode");
}

TEST_F(ToolTest, AnAgentAndItsLauncherAreOneRowForPeopleAndTwoForPrograms) {
  machine->processes = {
      {.pid = 6, .ppid = 1, .executable = "timeout", .command = "timeout 60 /u/.grok/bin/grok"},
      {.pid = 7, .ppid = 6, .executable = "grok", .command = "/usr/bin/grok"}};
  EXPECT_EQ(run({"agents"}).output,
            "    PID  AGENT        COMMAND\n"
            "      7  Grok Build   /usr/bin/grok\n");
  EXPECT_EQ(runJSON({"agents", "--json"}).array()->size(), 2U);
}

TEST_F(ToolTest, StopEndsTheTimer) {
  run({"manual", "--minutes", "20"});
  const JSONValue json = runJSON({"stop", "--json"});
  EXPECT_EQ(*json.member("state")->member("lastStopReason")->text(), "user_stop");
  EXPECT_EQ(json.member("manualRemainingSeconds"), nullptr);
}

TEST_F(ToolTest, RepairResetsTheState) {
  run({"manual", "--minutes", "20"});
  EXPECT_EQ(run({"repair"}).output,
            "NOT kept awake by this: nobody there.\n"
            "Only your own state was reset; the daemon could not be asked.\n"
            "Repair finished via local fallback.\n"
            "Status: inactive\n"
            "Power lock: off\n"
            "Timer: off\n"
            "Last stop reason: repair\n"
            "nodo is not preventing sleep.\n");
  const JSONValue json = runJSON({"repair", "--json"});
  EXPECT_EQ(*json.member("state")->member("lastStopReason")->text(), "repair");
}

TEST_F(ToolTest, ASimulatedPassShowsWhatItWouldDo) {
  run({"manual", "--minutes", "20"});
  const Outcome text = run({"reconcile", "--simulate"});
  EXPECT_EQ(text.exitStatus, 0);
  EXPECT_TRUE(
      text.output.starts_with("Simulated on your own state: no sleep lock was switched.\n"
                              "Operation:  would switch the sleep lock on\n"
                              "State:      changed\n"))
      << text.output;
  const auto run = decodeJSON<DaemonRunReport>(
      jsonText(runJSON({"reconcile", "--simulate", "--json"}), JSONLayout::compact));
  ASSERT_TRUE(run.operation);
  EXPECT_TRUE(run.operation->dryRun);
  EXPECT_FALSE(run.status.state.ownsSleepDisable);
}

TEST_F(ToolTest, ARealPassNeedsTheDaemon) {
  const Outcome outcome = run({"reconcile"});
  EXPECT_EQ(outcome.exitStatus, 1);
  EXPECT_EQ(outcome.output, "");
  EXPECT_NE(outcome.error.find("--simulate"), std::string::npos);
}

TEST_F(ToolTest, DiagnosticsListWhatBlocksSleep) {
  diagnostics.report.sleepDisabled = true;
  diagnostics.report.sleepLine = "sleep 1";
  diagnostics.report.blockers = {{.pid = 412,
                                  .processName = "player",
                                  .duration = "00:05:10",
                                  .assertionType = "PreventUserIdleSystemSleep",
                                  .assertionName = "Playing\x1b[1m",
                                  .scope = SleepBlockerScope::systemSleep},
                                 {.pid = 9,
                                  .processName = "manager",
                                  .assertionType = "shutdown",
                                  .assertionName = "update",
                                  .scope = SleepBlockerScope::other}};
  EXPECT_EQ(run({"diagnostics"}).output,
            "Sleep lock: on\n"
            "Setting:    sleep 1\n"
            "Blocks sleep:\n"
            "  pid 412 player: PreventUserIdleSystemSleep \"Playing\\u{1b}[1m\" for 00:05:10\n"
            "Blocks something else than sleep:\n"
            "  pid 9 manager: shutdown \"update\"\n");
  EXPECT_EQ(runJSON({"diagnostics", "--json"}).member("blockers")->array()->size(), 2U);
}

TEST_F(ToolTest, DiagnosticsWithoutASourceAreEmptyWithAHint) {
  diagnostics.hint = "nobody can be asked";
  for (const auto& arguments : {std::vector<std::string>{"diagnostics"},
                                std::vector<std::string>{"diagnostics", "--json"}}) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.exitStatus, 0);
    EXPECT_EQ(outcome.error, "nodoctl: nobody can be asked\n");
  }
  EXPECT_EQ(run({"diagnostics"}).output, "Sleep lock: unknown\nNothing is known to block sleep.\n");
  EXPECT_EQ(run({"diagnostics", "--json"}).output,
            "{\n  \"generatedAt\": \"2026-01-31T08:15:00Z\",\n  \"assertionStatuses\": {},\n"
            "  \"blockers\": []\n}\n");
}

TEST_F(ToolTest, TheStateLiesWhereTheEnvironmentSays) {
  run({"manual", "--minutes", "5"});
  EXPECT_TRUE(std::filesystem::exists(folder / ".nodo/state.json"));
  environment["NODO_STATE_DIR"] = (folder / "elsewhere").string();
  run({"manual", "--minutes", "5"});
  EXPECT_TRUE(std::filesystem::exists(folder / "elsewhere/state.json"));
}

TEST_F(ToolTest, WithoutAPlaceForTheStateCommandsFailWithAReason) {
  environment.clear();
  const Outcome outcome = run({"status"});
  EXPECT_EQ(outcome.exitStatus, 1);
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(outcome.error,
            "nodoctl: Unable to resolve nodo state directory; set HOME or NODO_STATE_DIR\n");
}

TEST_F(ToolTest, ACorruptStateIsNamedAndLeftAsItIs) {
  folder.write(".nodo/state.json", "{\"ownsSleepDisable\": \"yes\"}");
  for (const char* command : {"status", "stop", "repair"}) {
    const Outcome outcome = run({command, "--json"});
    EXPECT_EQ(outcome.exitStatus, 1);
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.error, "nodoctl: the state file " + (folder / ".nodo/state.json").string() +
                                 " cannot be read: ownsSleepDisable: expected true or false, "
                                 "found text \"yes\". It was left as it is; move it away to begin "
                                 "with a fresh state\n");
  }
  EXPECT_EQ(folder.read(".nodo/state.json"), "{\"ownsSleepDisable\": \"yes\"}");
}

TEST_F(ToolTest, AFullDiskFailsTheCommandWithThePath) {
  std::filesystem::create_directory(folder / ".nodo");
  const test::DiskFull full;
  const Outcome outcome = run({"manual", "--minutes", "5"});
  EXPECT_EQ(outcome.exitStatus, 1);
  EXPECT_EQ(outcome.output, "");
  EXPECT_TRUE(outcome.error.starts_with(
      "nodoctl: Unable to write " + (folder / ".nodo/state.json").string() + " (it is as it was"))
      << outcome.error;
}

TEST_F(ToolTest, MinutesOutsideThePolicyAreRefused) {
  const struct {
    const char* minutes;
    const char* error;
  } cases[] = {{"0", "nodoctl: 0 minutes are too few, at least 1\n"},
               {"-5", "nodoctl: -5 minutes are too few, at least 1\n"},
               {"721", "nodoctl: 721 minutes are too many, at most 720 (12 h)\n"}};

  for (const auto& each : cases) {
    const Outcome outcome = run({"manual", "--minutes", each.minutes});
    EXPECT_EQ(outcome.exitStatus, 2) << each.minutes;
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.error,
              each.error + std::string("Whoever runs the daemon sets the limits: see "
                                       "nodod(8).\n"));
  }
  EXPECT_FALSE(std::filesystem::exists(folder / ".nodo"));
}

TEST_F(ToolTest, AWrongUseIsExplainedWithAHint) {
  const struct {
    std::vector<std::string> arguments;
    const char* reason;
    const char* hint;
  } cases[] = {{{}, "No command given", "'nodoctl --help'"},
               {{"sleep"}, "sleep", "'nodoctl --help'"},
               {{"--json"}, "--json", "'nodoctl --help'"},
               {{"status", "extra"}, "extra", "'nodoctl status --help'"},
               {{"status", "--minutes", "5"}, "--minutes", "'nodoctl status --help'"},
               {{"manual"}, "--minutes N or --until HH:MM is required", "'nodoctl manual --help'"},
               {{"manual", "--minutes"}, "--minutes", "'nodoctl manual --help'"},
               {{"manual", "--minutes", "ten"}, "\"ten\"", "'nodoctl manual --help'"},
               {{"manual", "--minutes", "1.5"}, "\"1.5\"", "'nodoctl manual --help'"},
               {{"manual", "--minutes", "0x10"}, "\"0x10\"", "'nodoctl manual --help'"},
               {{"manual", "--minutes", "99999999999999999999"},
                "no length of time",
                "'nodoctl manual --help'"},
               {{"manual", "--minutes", "5\x1b[2J"}, "\\u{1b}", "'nodoctl manual --help'"},
               {{"completion"}, "shell is required", "'nodoctl completion --help'"},
               {{"completion", "tcsh"}, "tcsh", "'nodoctl completion --help'"}};

  for (const auto& each : cases) {
    const Outcome outcome = run(each.arguments);
    SCOPED_TRACE(outcome.error);
    EXPECT_EQ(outcome.exitStatus, 2);
    EXPECT_EQ(outcome.output, "");
    EXPECT_TRUE(outcome.error.starts_with("nodoctl: "));
    EXPECT_NE(outcome.error.find(each.reason), std::string::npos) << each.reason;
    EXPECT_NE(outcome.error.find(each.hint), std::string::npos) << each.hint;
  }
}

TEST_F(ToolTest, MinutesAreDecimal) {
  const JSONValue json = runJSON({"manual", "--minutes", "010", "--json"});
  EXPECT_EQ(json.member("manualRemainingSeconds")->number()->digits, "600");
}

TEST_F(ToolTest, EveryCommandHasHelpAndVersion) {
  for (const char* command :
       {"",      "status", "history", "manual",    "on",         "stop",        "off",
        "pause", "resume", "repair",  "reconcile", "doctor",     "diagnostics", "agents",
        "hooks", "menu",   "watch",   "run",       "completion", "help",        "version"}) {
    std::vector<std::string> arguments;
    if (*command != '\0') {
      arguments.emplace_back(command);
    }
    arguments.emplace_back("--help");
    const Outcome help = run(arguments);
    EXPECT_EQ(help.exitStatus, 0) << command;
    EXPECT_EQ(help.error, "");
    EXPECT_NE(help.output.find(std::string("Usage: nodoctl ") + command), std::string::npos)
        << help.output;
    EXPECT_EQ(run({"help", command}).output, *command == '\0' ? "" : help.output);
    for (const char* option : {"--version", "-V"}) {
      arguments.back() = option;
      const Outcome version = run(arguments);
      EXPECT_EQ(version.exitStatus, 0) << command;
      EXPECT_TRUE(version.output.starts_with("nodoctl 0.")) << version.output;
      EXPECT_TRUE(version.output.ends_with("\n"));
    }
  }
  EXPECT_EQ(run({"help"}).output, run({"--help"}).output);
  EXPECT_EQ(run({"help", "hooks", "install"}).output, run({"hooks", "install", "--help"}).output);
  EXPECT_EQ(run({"version"}).output, run({"--version"}).output);
}

TEST_F(ToolTest, HelpIsAsWideAsTheTerminalOrAsCOLUMNSSays) {
  const auto widest = [this] {
    std::istringstream help(run({"--help"}).output);
    std::size_t columns = 0;
    for (std::string line; std::getline(help, line);) {
      columns = std::max(columns, line.size());
    }
    return columns;
  };
  const auto between = [](std::size_t from, std::size_t to) {
    return ::testing::AllOf(::testing::Gt(from), ::testing::Le(to));
  };
  EXPECT_THAT(widest(), between(70, 80));
  const auto screen = std::make_shared<FakeTerminal>();
  screen->dimensions.columns = 50;
  terminal = screen;
  EXPECT_THAT(widest(), between(40, 50));
  environment["COLUMNS"] = "200";
  EXPECT_THAT(widest(), between(90, 100));
}

TEST_F(ToolTest, AnAnswerThatCannotBeWrittenIsAFailure) {
  std::ostringstream error;
  std::ostream closed(nullptr);
  const int status =
      runTool({"--version"},
              {.environment = {}, .machine = {}, .now = {}, .output = closed, .error = error});
  EXPECT_EQ(status, 1);
  EXPECT_TRUE(error.str().starts_with("nodoctl: the answer cannot be written")) << error.str();
}

TEST_F(ToolTest, AMachineThatCannotBeReadFailsTheCommand) {
  machine->listingFails = true;
  const Outcome outcome = run({"agents"});
  EXPECT_EQ(outcome.exitStatus, 1);
  EXPECT_EQ(outcome.error, "nodoctl: Unable to list processes: broken\n");
}

}  // namespace
}  // namespace nodo::nodoctl
