#include <NODOCore/hooks/Agents.h>

#include <filesystem>

#include <tests/hooks/HookScriptFixture.h>

namespace nodo::test {
namespace {

using Lines = std::vector<std::string>;

class HookScriptRunTest : public HookScriptFixture {
 protected:
  HookScriptRunTest() {
    set("NODO_HOOK_AGENT", "codex");
    set("NODO_HOOK_EVENT", "PreToolUse");
  }

  const std::string manual =
      "nodoctl <manual> <--minutes> <20> <--extend-only> <--requester> <Codex> <--json> "
      "<--context> <project> <--event> <PreToolUse>";
  const std::string nowText = std::to_string(now) + "\n";
};

TEST_F(HookScriptRunTest, AnAcceptedRequestIsStampedAndLogged) {
  run();
  EXPECT_EQ(calls(), (Lines{manual, "nodoctl <doctor>"}));
  EXPECT_EQ(log(),
            (Lines{"nodo active minutes=20 requester=Codex context=project event=PreToolUse"}));
  EXPECT_EQ(content("stamp"), nowText);
}

TEST_F(HookScriptRunTest, ADisabledSleepCountsAsAcceptedToo) {
  set("HOOK_TEST_REPORT", "nodo doctor\nStatus: standby\nmacOS SleepDisabled: on (nodo)");
  run();
  EXPECT_EQ(log(),
            (Lines{"nodo active minutes=20 requester=Codex context=project event=PreToolUse"}));
  EXPECT_EQ(content("stamp"), nowText);
}

TEST_F(HookScriptRunTest, TheReportCountsWhateverItsExitStatusAndStream) {
  set("HOOK_TEST_REPORT", "");
  set("HOOK_TEST_REPORT_ERROR", "nodo doctor\nStatus: active (timer)");
  set("HOOK_TEST_DOCTOR_STATUS", "1");
  run();
  EXPECT_EQ(log(),
            (Lines{"nodo active minutes=20 requester=Codex context=project event=PreToolUse"}));
}

TEST_F(HookScriptRunTest, ALockThatIsOffIsLoggedAndTriedAgainAtOnce) {
  for (const char* report :
       {"Status: standby", "", "Last Status: active", "status: active", "SleepDisabled: on"}) {
    set("HOOK_TEST_REPORT", report);
    run();
  }
  EXPECT_EQ(log(), Lines(5, "nodo helper reachable but sleep lock is off"));
  EXPECT_EQ(content("stamp"), std::nullopt);
  EXPECT_EQ(calls().size(), 10U);
}

TEST_F(HookScriptRunTest, AnUnavailableHelperLeadsToTheFallback) {
  // Although the local state says that it is active.
  set("HOOK_TEST_REPORT", "nodo doctor\nStatus source: local fallback\nStatus: active");
  run();
  EXPECT_EQ(log(), (Lines{"helper unavailable; using fallback",
                          "fallback caffeinate started seconds=600"}));
  EXPECT_EQ(awaitCaffeinate(), "caffeinate <-is> <-t> <600>");
  EXPECT_EQ(content("stamp"), nowText);
}

TEST_F(HookScriptRunTest, AFailedRequestLeadsToTheFallback) {
  for (const char* status : {"1", "2", "255"}) {
    set("HOOK_TEST_MANUAL_STATUS", status);
    std::filesystem::remove(folder() / "stamp");
    std::filesystem::remove(folder() / "log");
    std::filesystem::remove(folder() / "calls");
    run();
    EXPECT_EQ(calls(), (Lines{manual}));
    EXPECT_EQ(log(), (Lines{"nodo manual failed ctl=" + path("nodoctl") + " requester=Codex",
                            "fallback caffeinate started seconds=600"}));
    EXPECT_EQ(awaitCaffeinate(), "caffeinate <-is> <-t> <600>");
    EXPECT_EQ(content("stamp"), nowText);
  }
}

TEST_F(HookScriptRunTest, AMissingNodoctlLeadsToTheFallback) {
  if (std::filesystem::exists("/Applications/nodo.app")) {
    GTEST_SKIP() << "nodo is installed on this machine";
  }
  unset("NODOCTL_PATH");
  run();
  EXPECT_EQ(log(), (Lines{"nodoctl not found", "fallback caffeinate started seconds=600"}));
  EXPECT_EQ(awaitCaffeinate(), "caffeinate <-is> <-t> <600>");
  EXPECT_EQ(content("stamp"), nowText);
  EXPECT_EQ(calls(), Lines{});
}

TEST_F(HookScriptRunTest, AMissingCaffeinateIsLoggedAndThrottledToo) {
  hide("caffeinate");
  set("HOOK_TEST_MANUAL_STATUS", "1");
  run();
  EXPECT_EQ(log(), (Lines{"nodo manual failed ctl=" + path("nodoctl") + " requester=Codex",
                          "fallback unavailable: caffeinate not found"}));
  EXPECT_EQ(content("stamp"), nowText);
}

TEST_F(HookScriptRunTest, TheFallbackOutlivesTheScriptAndHoldsNobodyUp) {
  letCaffeinateStay();
  set("HOOK_TEST_MANUAL_STATUS", "1");
  // Returns only once nobody has the script's standard output open any more.
  run();
  EXPECT_EQ(awaitCaffeinate(), "caffeinate <-is> <-t> <600>");
  answerCaffeinate("hello");
  EXPECT_EQ(awaitCaffeinate(), "heard hello");
}

TEST_F(HookScriptRunTest, SettingsOfTheEnvironmentAreUsed) {
  set("NODO_HOOK_MINUTES", "45");
  set("NODO_HOOK_FALLBACK_SECONDS", "90");
  set("NODO_HOOK_STAMP", path("deep/er/stamp"));
  run();
  EXPECT_EQ(calls().front().substr(0, 34), "nodoctl <manual> <--minutes> <45> ");
  EXPECT_EQ(log().back(),
            "nodo active minutes=45 requester=Codex context=project event=PreToolUse");
  EXPECT_EQ(content("deep/er/stamp"), nowText);

  std::filesystem::remove(folder() / "deep/er/stamp");
  set("HOOK_TEST_MANUAL_STATUS", "1");
  run();
  EXPECT_EQ(log().back(), "fallback caffeinate started seconds=90");
  EXPECT_EQ(awaitCaffeinate(), "caffeinate <-is> <-t> <90>");
}

TEST_F(HookScriptRunTest, TheStampLiesInTheHomeUnlessSaidOtherwise) {
  unset("NODO_HOOK_STAMP");
  run();
  EXPECT_EQ(content("home/.nodo/last-extend.stamp"), nowText);
}

TEST_F(HookScriptRunTest, EveryTargetIsNamedAsPeopleReadIt) {
  for (const AgentHookTarget target : allCases<AgentHookTarget>()) {
    set("NODO_HOOK_AGENT", std::string(rawValue(target)));
    std::filesystem::remove(folder() / "stamp");
    run();
    EXPECT_EQ(log().back(), "nodo active minutes=20 requester=" + std::string(displayName(target)) +
                                " context=project event=PreToolUse");
  }
}

TEST_F(HookScriptRunTest, AnUnknownAgentIsAnAgentWithoutAnEvent) {
  unset("NODO_HOOK_EVENT");
  unset("NODO_HOOK_AGENT");
  run();
  for (const char* agent : {"", "agent", "Claude", "claude ", "gemini"}) {
    set("NODO_HOOK_AGENT", agent);
    std::filesystem::remove(folder() / "stamp");
    run();
  }
  EXPECT_EQ(log(), Lines(6, "nodo active minutes=20 requester=Agent context=project event="));
  for (const std::string& call : calls()) {
    EXPECT_EQ(call.find("--event"), std::string::npos) << call;
  }
}

}  // namespace
}  // namespace nodo::test
