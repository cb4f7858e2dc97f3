#include <NODOCore/control/DaemonSettings.h>
#include <NODOCore/control/PowerDecision.h>
#include <NODOCore/hooks/AgentHookLogInspector.h>
#include <NODOCore/power/PowerManaging.h>
#include <testing/EnvironmentVariable.h>

#include <tests/programs/nodoctl/ToolFixture.h>

namespace nodo::nodoctl {
namespace {

using test::FakeHelper;
using test::FakeHelperRequest;
using Texts = std::vector<std::string>;

class StateCommandsTest : public ToolFixture {
 protected:
  static FakeHelper::Answer silence() {
    return [](const FakeHelperRequest&) {};
  }

  static const JSONValue* stopReason(const JSONValue& report) {
    return report.member("state")->member("lastStopReason");
  }

  // What the reason is when a status request ends like that.
  std::string reasonFor(FakeHelper::Answer answer) {
    startDaemon();
    helper->answer("status", std::move(answer));
    const Outcome outcome = run({"status", "--helper-timeout", "0.05"});
    EXPECT_EQ(outcome.exitStatus, 0);
    EXPECT_TRUE(outcome.output.starts_with("NOT kept awake by this: ")) << outcome.output;
    const std::string before = "nodoctl: helper unavailable (";
    const std::string after = "); using the local state\n";
    EXPECT_TRUE(outcome.error.starts_with(before) && outcome.error.ends_with(after))
        << outcome.error;
    return outcome.error.substr(before.size(), outcome.error.size() - before.size() - after.size());
  }

  void startFallback() {
    AgentHookLogInspector::markFallbackResolved(std::nullopt, "earlier", now - Seconds(60),
                                                environment);
    // The log's times are local ones: take their form from the line just written.
    std::string line = folder.read("hook.log");
    line.replace(line.find("fallback resolved"), std::string::npos,
                 "fallback caffeinate started seconds=600\n");
    folder.write("hook.log", line);
    ASSERT_TRUE(
        AgentHookLogInspector::recentFallbackStatus(std::nullopt, now, environment).isActive);
  }
};

TEST_F(StateCommandsTest, TheDaemonAnswersInSilence) {
  startDaemon();
  for (const char* command : {"status", "stop", "repair"}) {
    EXPECT_EQ(*stopReason(runJSON({command, "--json"}))->text(), "the daemon's") << command;
  }
  EXPECT_EQ(helper->requests(), (Texts{"status", "stop", "repair"}));
  EXPECT_EQ(helper->openConnections(), 0U);
  EXPECT_FALSE(std::filesystem::exists(folder / ".nodo"));
}

TEST_F(StateCommandsTest, ATimerIsTheDaemonsWithItsRequester) {
  startDaemon();
  runJSON({"manual", "--minutes", "20", "--json"});
  runJSON({"manual", "--minutes", "20", "--extend-only", "--json"});
  runJSON({"manual", "--minutes", "5", "--requester", "Codex", "--context", " a\tb ", "--event",
           "Stop", "--json"});
  EXPECT_EQ(helper->requests(),
            (Texts{"enableManual 20", "enableManualV2 20 extend-only nil nil nil",
                   "enableManualV2 5 replace \"Codex\" \"a b\" \"Stop\""}));
}

TEST_F(StateCommandsTest, ALengthIsTakenAsPeopleWriteIt) {
  startDaemon();
  run({"manual", "1h30m"});
  run({"manual", "--minutes", "1h"});
  run({"on"});
  run({"on", "45m", "--extend-only", "--requester", "Ada"});
  run({"run", "--minutes", "1h1m", "--keep", "--", "true"});
  Texts requests = helper->requests();
  std::erase(requests, "status");
  ASSERT_EQ(requests.size(), 5U);
  EXPECT_TRUE(requests.back().starts_with("enableManualV2 61 extend-only ")) << requests.back();
  requests.pop_back();
  EXPECT_EQ(requests, (Texts{"enableManual 90", "enableManual 60", "enableManual 60",
                             "enableManualV2 45 extend-only \"Ada\" nil nil"}));
}

TEST_F(StateCommandsTest, OffIsStop) {
  startDaemon();
  EXPECT_EQ(run({"off"}).output, run({"stop"}).output);
  EXPECT_EQ(run({"off", "--json"}).output, run({"stop", "--json"}).output);
  EXPECT_EQ(helper->requests(), (Texts{"stop", "stop", "stop", "stop"}));
}

TEST_F(StateCommandsTest, UntilMeansTheNextTimeOfTheClockRoundedUpToAMinute) {
  startDaemon();
  const test::EnvironmentVariable zone("TZ", "CET-1CEST,M3.5.0,M10.5.0/3");  // it is 09:15
  run({"manual", "--until", "10:00"});
  advance(0.5);
  run({"manual", "--until", "10:00", "--extend-only"});
  run({"on", "--until=10:00", "--requester", "Ada", "--context", "demo"});
  EXPECT_EQ(helper->requests(),
            (Texts{"enableManual 45", "enableManualV2 45 extend-only nil nil nil",
                   "enableManualV2 45 replace \"Ada\" \"demo\" nil"}));
}

TEST_F(StateCommandsTest, UntilFollowsTheWallClockThroughAChangeOfDaylightSavingTime) {
  startDaemon();
  const test::EnvironmentVariable zone("TZ", "CET-1CEST,M3.5.0,M10.5.0/3");
  now = dateFromSeconds(1774742400);  // 2026-03-29 01:00
  run({"manual", "--until", "7:00"});
  run({"manual", "--until", "2:30"});
  now = dateFromSeconds(1792882800);  // 2026-10-25 01:00
  run({"manual", "--until", "7:00"});
  run({"manual", "--until", "2:30"});
  EXPECT_EQ(helper->requests(),
            (Texts{"enableManual 300", "enableManual 60", "enableManual 420", "enableManual 90"}));
}

TEST_F(StateCommandsTest, ATimeThatIsTooFarAheadIsToldWithItsDay) {
  const test::EnvironmentVariable zone("TZ", "UTC0");
  const Outcome outcome = run({"manual", "--until", "08:15"});
  EXPECT_EQ(outcome.exitStatus, 2);
  EXPECT_TRUE(outcome.error.starts_with(
      "nodoctl: until 2026-02-01 08:15: 1440 minutes are too many, at most 720 (12 h)\n"))
      << outcome.error;
  EXPECT_FALSE(std::filesystem::exists(folder / ".nodo/state.json"));
}

TEST_F(StateCommandsTest, WhoCannotReachTheDaemonIsToldThatItsLockStillStands) {
  diagnostics.report.sleepDisabled = true;
  for (const char* command : {"stop", "repair"}) {
    const Outcome outcome = run({command, "--json"});
    EXPECT_EQ(outcome.exitStatus, 1) << command;
    EXPECT_TRUE(outcome.saidLocal);
    EXPECT_EQ(outcome.error,
              "nodoctl: the sleep lock is still on and this computer stays awake: only the daemon "
              "releases it; try again with sudo, or end the daemon\n");
    EXPECT_NO_THROW(JSONValue::parse(outcome.output));
  }
  EXPECT_EQ(run({"status"}).exitStatus, 0) << "nobody asked for sleep";
}

TEST_F(StateCommandsTest, ALockThatStaysIsAFailureOfStopAlthoughTheDaemonAnswers) {
  startDaemon();
  for (const char* command : {"stop", "repair"}) {
    diagnostics.report.sleepDisabled = true;
    const Outcome stays = run({command});
    EXPECT_EQ(stays.exitStatus, 1);
    EXPECT_TRUE(stays.output.starts_with(
        "Still kept awake: the sleep lock is on, although nothing asks for it.\n"));
    diagnostics.report.sleepDisabled = false;
    EXPECT_EQ(run({command}).exitStatus, 0);
  }
}

TEST_F(StateCommandsTest, ATimerInVainIsAFailureForPeopleAndADocumentForPrograms) {
  startDaemon();
  StatusReport& status = helper->status;
  status.state.manualUntil = now + std::chrono::minutes(60);
  status.manualRemainingSeconds = 3600;
  status.snapshot.batteryPercent = 15;
  status.decision.safetyBlocks = {reason::batteryBelowThreshold};
  diagnostics.report.sleepDisabled = false;
  settings = SettingsReport(EffectiveSettings());
  const test::EnvironmentVariable zone("TZ", "UTC0");
  const Outcome vetoed = run({"manual", "--minutes", "60"});
  EXPECT_EQ(vetoed.exitStatus, 1);
  EXPECT_TRUE(
      vetoed.output.starts_with("The timer runs, but sleep is allowed: battery at 15 % (limit 20 "
                                "%). It runs until 09:15 (1 h "
                                "left).\n"))
      << vetoed.output;
  runJSON({"manual", "--minutes", "60", "--json"});
  status.decision = {.shouldPreventSleep = true, .reasons = {reason::manualTimer}};
  const Outcome lost = run({"manual", "--minutes", "60"});
  EXPECT_EQ(lost.exitStatus, 1);
  EXPECT_TRUE(
      lost.output.starts_with("NOT kept awake by nodo, although the timer runs until 09:15"))
      << lost.output;
  status.state.ownsSleepDisable = true;
  diagnostics.report.sleepDisabled = true;
  const Outcome held = run({"manual", "--minutes", "60"});
  EXPECT_EQ(held.exitStatus, 0);
  EXPECT_TRUE(held.output.starts_with("Kept awake until 09:15 (1 h left).\n")) << held.output;
}

TEST_F(StateCommandsTest, WhoeverCannotSeeWhetherALockStandsSaysSo) {
  diagnosticsFail = true;
  const Outcome outcome = run({"stop"});
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_EQ(outcome.error, "nodoctl: whether the sleep lock is on cannot be seen: broken\n");
}

TEST_F(StateCommandsTest, WithoutADaemonTheOwnStateServes) {
  EXPECT_TRUE(run({"manual", "--minutes", "20"}).saidLocal);
  for (const char* command : {"status", "stop", "repair"}) {
    const Outcome outcome = run({command, "--json"});
    EXPECT_EQ(outcome.exitStatus, 0) << command;
    EXPECT_TRUE(outcome.saidLocal);
    EXPECT_EQ(outcome.error, "");
    EXPECT_NO_THROW(JSONValue::parse(outcome.output));
  }
  EXPECT_TRUE(std::filesystem::exists(folder / ".nodo/state.json"));
}

TEST_F(StateCommandsTest, TheReasonSaysWhatBecameOfTheRequest) {
  const struct {
    FakeHelper::Answer answer;
    const char* reason;
  } cases[] = {
      {silence(), "Helper request timed out"},
      {[](const FakeHelperRequest& request) { request.refuse("the state cannot be read"); },
       "the state cannot be read"},
      {[](const FakeHelperRequest& request) { request.refuse(""); }, "it gave no reason"},
      {[](const FakeHelperRequest& request) { request.refuse("a\x1b[2Jb"); }, "a\\u{1b}[2Jb"},
      {[](const FakeHelperRequest& request) { request.fail("the daemon nodod is not running"); },
       "the daemon nodod is not running"},
      {[](const FakeHelperRequest& request) { request.interrupt(); }, "connection interrupted"},
      {[](const FakeHelperRequest& request) { request.invalidate(); }, "connection invalidated"},
      {[](const FakeHelperRequest& request) { request.reply("{}"); },
       "Invalid helper response: missing status report"},
      {[](const FakeHelperRequest& request) { request.reply(std::nullopt); },
       "Invalid helper response: non-UTF8 payload"}};

  for (const auto& each : cases) {
    EXPECT_EQ(reasonFor(each.answer), each.reason);
  }
  EXPECT_TRUE(reasonFor([](const FakeHelperRequest& request) {
                request.reply("{\"status\": 7}");
              }).starts_with("its answer cannot be read: status: "));
}

TEST_F(StateCommandsTest, ADaemonThatHangsIsWaitedForOnce) {
  startDaemon();
  for (const char* request : {"enableManualV2", "enableManual", "status"}) {
    helper->answer(request, silence());
  }
  const Outcome outcome =
      run({"manual", "--minutes", "5", "--extend-only", "--helper-timeout", "0.05", "--json"});
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_EQ(outcome.error,
            "nodoctl: helper unavailable (Helper request timed out); using the local state\n");
  EXPECT_EQ(helper->requests(), (Texts{"enableManualV2 5 extend-only nil nil nil"}));
  EXPECT_EQ(JSONValue::parse(outcome.output).member("manualRemainingSeconds")->number()->digits,
            "300");
}

TEST_F(StateCommandsTest, ADaemonOfTheFirstGenerationIsServedWithItsOwnRequests) {
  startDaemon();
  helper->knowsSecondGeneration = false;
  helper->status.state.manualUntil = now + Seconds(60 * 60);
  runJSON({"manual", "--minutes", "20", "--extend-only", "--requester", "Pi", "--json"});
  EXPECT_EQ(helper->requests(),
            (Texts{"enableManualV2 20 extend-only \"Pi\" nil nil", "status", "reconcile"}));
}

TEST_F(StateCommandsTest, ADaemonThatHangsLateIsWaitedForOnceAsWell) {
  startDaemon();
  helper->knowsSecondGeneration = false;
  helper->answer("enableManual", silence());
  run({"manual", "--minutes", "20", "--requester", "Pi", "--helper-timeout", "0.05"});
  EXPECT_EQ(helper->requests(),
            (Texts{"enableManualV2 20 replace \"Pi\" nil nil", "enableManual 20"}));
}

TEST_F(StateCommandsTest, MinutesThatNobodyAllowsAreNotAskedFor) {
  startDaemon();
  for (const char* minutes : {"0", "-1", "9223372036854775807", "-9223372036854775808"}) {
    const Outcome outcome = run({"manual", "--extend-only", "--minutes", minutes});
    EXPECT_EQ(outcome.exitStatus, 2) << minutes;
    EXPECT_EQ(outcome.output, "");
    EXPECT_TRUE(outcome.error.starts_with(std::string("nodoctl: ") + minutes + " minutes are too "))
        << outcome.error;
  }
  EXPECT_EQ(helper->requests(), Texts{});
}

TEST_F(StateCommandsTest, MinutesThatTheDaemonAllowsMayBeMoreThanUsual) {
  startDaemon();
  EXPECT_EQ(run({"manual", "--minutes", "1440"}).exitStatus, 0);
}

TEST_F(StateCommandsTest, MinutesThatTheDaemonRefusesAreAWrongUseThatNamesItsLimit) {
  startDaemon();
  for (const char* request : {"enableManual", "enableManualV2", "status"}) {
    helper->answer(request, [](const FakeHelperRequest& asked) { asked.refuse("no"); });
  }
  settings = SettingsReport(EffectiveSettings());
  settings->policy.maxManualDurationMinutes = 90;
  for (const Texts& options : {Texts{}, Texts{"--json"}, Texts{"--extend-only"}}) {
    Texts arguments{"manual", "--minutes", "100"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.exitStatus, 2);
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.error,
              "nodoctl: 100 minutes are too many, at most 90 (1 h 30 min)\n"
              "Whoever runs the daemon sets the limits: see nodod(8).\n");
  }
  EXPECT_FALSE(std::filesystem::exists(folder / ".nodo/state.json"));
  const Outcome other = run({"manual", "--minutes", "90"});
  EXPECT_EQ(other.exitStatus, 0) << "another refusal is none of the value";
  EXPECT_EQ(other.error, "nodoctl: helper unavailable (no); using the local state\n");
}

TEST_F(StateCommandsTest, WithoutADaemonTheUsualLimitHolds) {
  const Outcome outcome = run({"manual", "--minutes", "721"});
  EXPECT_EQ(outcome.exitStatus, 2);
  EXPECT_EQ(outcome.output, "");
  EXPECT_TRUE(outcome.error.starts_with("nodoctl: 721 minutes are too many, at most 720 (12 h)\n"));
  EXPECT_EQ(settingsAsked, 0) << "of nobody";
  EXPECT_FALSE(std::filesystem::exists(folder / ".nodo/state.json"));
}

TEST_F(StateCommandsTest, WhenTheOwnStateFailsAsWellBothAreSaid) {
  folder.write(".nodo/state.json", "[");
  const Outcome outcome = run({"status"});
  EXPECT_EQ(outcome.exitStatus, 1);
  EXPECT_EQ(outcome.output, "");
  EXPECT_TRUE(outcome.saidLocal);
  EXPECT_TRUE(outcome.error.starts_with("nodoctl: the state file ")) << outcome.error;
}

TEST_F(StateCommandsTest, WithADaemonTheOwnStateMayBeNowhere) {
  startDaemon();
  environment.erase("HOME");
  EXPECT_EQ(run({"status"}).exitStatus, 0);
}

TEST_F(StateCommandsTest, ARepairNamesItsSource) {
  EXPECT_TRUE(run({"repair"})
                  .output.starts_with("NOT kept awake by this: nobody there.\nOnly your own state "
                                      "was reset; the daemon could not "
                                      "be asked.\nRepair finished via local fallback.\n"));
  startDaemon();
  EXPECT_TRUE(
      run({"repair"})
          .output.starts_with("Not kept awake: no timer runs.\nRepair finished via helper.\n"));
}

TEST_F(StateCommandsTest, ARealPassIsTheDaemonsAlone) {
  startDaemon();
  helper->run.stateChanged = true;
  const Outcome outcome = run({"reconcile"});
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_TRUE(outcome.output.starts_with("Operation:  nothing to do\nState:      changed\n"));
  EXPECT_EQ(*runJSON({"reconcile", "--json"}).member("stateChanged")->boolean(), true);
  helper->answer("reconcile", silence());
  const Outcome hung = run({"reconcile", "--helper-timeout", "0.05"});
  EXPECT_EQ(hung.exitStatus, 1);
  EXPECT_EQ(hung.output, "");
  EXPECT_EQ(hung.error,
            "nodoctl: only the daemon may switch the sleep lock, and it is unavailable (Helper "
            "request timed out); 'nodoctl reconcile --simulate' shows what a pass would do\n");
}

TEST_F(StateCommandsTest, ASimulatedPassAsksNoDaemon) {
  startDaemon();
  EXPECT_EQ(run({"reconcile", "--simulate"}).exitStatus, 0);
  EXPECT_EQ(helper->requests(), Texts{});
}

TEST_F(StateCommandsTest, TheBusIsAsTheCommandLineSays) {
  startDaemon();
  run({"status"});
  EXPECT_EQ(bus, std::nullopt);
  for (const auto& arguments :
       {Texts{"status", "--bus", "session"}, Texts{"--bus", "session", "status"}}) {
    bus.reset();
    EXPECT_EQ(run(arguments).exitStatus, 0);
    EXPECT_EQ(bus, "session");
  }
  for (const std::string address :
       {"unix:path=/run/a,guid=7", "unix:path=/run/tcp:a;unix:path=b"}) {
    run({"stop", "--bus=" + address});
    EXPECT_EQ(bus, address);
  }
}

TEST_F(StateCommandsTest, OptionsForTheDaemonThatMakeNoSenseAreAWrongUse) {
  const Texts cases[] = {{"--helper-timeout", "0"},
                         {"--helper-timeout", "-1"},
                         {"--helper-timeout", "1s"},
                         {"--helper-timeout", "."},
                         {"--helper-timeout", "nan"},
                         {"--helper-timeout", ""},
                         {"--helper-timeout", "1.2.3"},
                         {"--bus", "sessions"},
                         {"--bus", ""},
                         {"--bus", "tcp:host=a,port=1"},
                         {"--bus", "nonce-tcp:host=a"},
                         {"--bus", "unix:path=/run/a;tcp:host=a"}};

  for (const Texts& each : cases) {
    const Outcome outcome = run({"status", each[0], each[1]});
    EXPECT_EQ(outcome.exitStatus, 2) << each[1];
    EXPECT_EQ(outcome.output, "");
    EXPECT_TRUE(outcome.error.starts_with("nodoctl: " + each[0] + ": \"" + each[1] + "\" is "))
        << outcome.error;
    EXPECT_TRUE(outcome.error.ends_with("Try 'nodoctl status --help' for more information.\n"));
  }
}

TEST_F(StateCommandsTest, ATimerThroughTheDaemonEndsAFallback) {
  startDaemon();
  startFallback();
  run({"manual", "--minutes", "20", "--requester", "Claude Code"});
  const std::string log = folder.read("hook.log");
  EXPECT_TRUE(log.ends_with(" fallback resolved reason=helper manual\n")) << log;
  EXPECT_FALSE(
      AgentHookLogInspector::recentFallbackStatus(std::nullopt, now, environment).isActive);
  run({"manual", "--minutes", "20"});
  EXPECT_EQ(folder.read("hook.log"), log);
}

TEST_F(StateCommandsTest, NothingElseEndsAFallback) {
  startFallback();
  const std::string log = folder.read("hook.log");
  run({"manual", "--minutes", "20"});
  startDaemon();
  run({"status"});
  run({"stop"});
  EXPECT_EQ(folder.read("hook.log"), log);
}

TEST_F(StateCommandsTest, WithoutAFallbackNoLogIsWritten) {
  startDaemon();
  run({"manual", "--minutes", "20"});
  EXPECT_FALSE(std::filesystem::exists(folder / "hook.log"));
}

}  // namespace
}  // namespace nodo::nodoctl
