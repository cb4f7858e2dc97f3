#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/diagnostics/Findings.h>
#include <testing/EnvironmentVariable.h>

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace nodo {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

FindingFacts factsWithoutFindings() {
  return {.now = dateFromSeconds(1769847300)};  // 2026-01-31 08:15:00 UTC
}

TEST(FindingsTest, WhereEverythingIsAsItShouldBeThereAreNone) {
  EXPECT_EQ(findings(factsWithoutFindings()), std::vector<Finding>());
  EXPECT_EQ(findingsText({}), "");
}

TEST(FindingsTest, APauseIsToldWithItsEndAndTheWayOut) {
  const test::EnvironmentVariable zone("TZ", "UTC0");
  FindingFacts facts = factsWithoutFindings();
  facts.hooksPausedUntil = facts.now + std::chrono::minutes(60);
  const std::vector<Finding> found = findings(facts);
  ASSERT_EQ(found.size(), 1);
  EXPECT_EQ(found[0].kind, FindingKind::hooksPaused);
  EXPECT_EQ(found[0].severity, FindingSeverity::note);
  EXPECT_EQ(findingsText(found),
            "Note: The agents' hooks are paused until 09:15.\n"
            "  'nodoctl resume' ends that.\n");
}

TEST(FindingsTest, ARefusalOfTheDaemonIsAWarningWithItsReasonAndTheWayIn) {
  FindingFacts facts = factsWithoutFindings();
  facts.daemonRefusal = "only for ada\x1b";
  const std::vector<Finding> found = findings(facts);
  ASSERT_EQ(found.size(), 1);
  EXPECT_EQ(found[0].kind, FindingKind::daemonRefuses);
  EXPECT_EQ(findingsText(found),
            "Problem: The daemon refuses requests of this user: only for ada\\u{1b}.\n"
            "  Where polkit runs, the group nodo may ask from anywhere: join it with "
            "'sudo usermod -aG nodo \"$USER\"', then log in again.\n");
}

TEST(FindingsTest, ADaemonWhoseUserMaySleepUnderItsLockIsAWarning) {
  FindingFacts facts = factsWithoutFindings();
  facts.hooksPausedUntil = facts.now + std::chrono::minutes(60);
  facts.daemonLetsItsUserSleep = true;
  const std::vector<Finding> found = findings(facts);
  ASSERT_EQ(found.size(), 2);
  EXPECT_EQ(found[0].kind, FindingKind::daemonOfUserDoesNotProtect);
  EXPECT_EQ(found[0].severity, FindingSeverity::warning);
  EXPECT_EQ(found[1].kind, FindingKind::hooksPaused);
}

TEST(FindingsTest, AFileThatCannotBeReadIsAWarningWithItsReason) {
  FindingFacts facts = factsWithoutFindings();
  facts.unreadableHooks = {
      {.target = AgentHookTarget::claude, .path = "/h/s.json", .error = "/h/s.json: no\nJSON"}};
  const std::vector<Finding> found = findings(facts);
  ASSERT_EQ(found.size(), 1);
  EXPECT_EQ(found[0].kind, FindingKind::hooksUnreadable);
  EXPECT_EQ(found[0].severity, FindingSeverity::warning);
  EXPECT_EQ(found[0].what, "It is not known whether Claude Code runs hooks: /h/s.json: no\\nJSON.");
}

TEST(FindingsTest, EveryObstacleToHooksIsAWarningThatNamesItsPlace) {
  const struct {
    HookObstacle obstacle;
    FindingKind kind;
    const char* text;
  } cases[] = {
      {{HookObstacleKind::scriptMissing, std::nullopt, "/h/x"},
       FindingKind::hookScriptMissing,
       "Problem: Agents run the hook script /h/x, which is not there or not executable.\n"
       "  'nodoctl hooks install' puts it there.\n"},
      {{HookObstacleKind::toolMissing, std::nullopt, "/h/x"},
       FindingKind::hookToolMissing,
       "Problem: The hooks find no nodoctl: /h/x is no program that can be run.\n"
       "  'nodoctl hooks install' makes them run this one.\n"},
      {{HookObstacleKind::switchedOff, AgentHookTarget::claude, "/h/x"},
       FindingKind::hooksSwitchedOff,
       "Problem: Claude Code runs no hooks of nodo: /h/x switches them off.\n"
       "  Take \"disableAllHooks\" or \"allowManagedHooksOnly\" out of that file, or ask whoever "
       "manages it.\n"},
      {{HookObstacleKind::switchedOff, AgentHookTarget::codex, "/h/x"},
       FindingKind::hooksSwitchedOff,
       "Problem: Codex runs no hooks of nodo: /h/x switches them off.\n"
       "  Switch them on with /hooks in Codex, or with \"hooks = true\" below [features] in that "
       "file.\n"},
      {{HookObstacleKind::notTrusted, AgentHookTarget::codex, "/h/x"},
       FindingKind::hooksNotTrusted,
       "Problem: Codex does not run nodo's hooks: /h/x does not say that you trust them.\n"
       "  Type /hooks in Codex, review them and trust them.\n"},
      {{HookObstacleKind::configuredElsewhere, AgentHookTarget::claude, "/h/x"},
       FindingKind::hooksElsewhere,
       "Problem: Claude Code is configured in /h/x, as CLAUDE_CONFIG_DIR says, and no hooks of "
       "nodo are there.\n"
       "  Unset CLAUDE_CONFIG_DIR where the agent is started, or take \"hooks\" over from "
       "~/.claude/settings.json.\n"}};

  for (const auto& [obstacle, kind, text] : cases) {
    FindingFacts facts = factsWithoutFindings();
    facts.hookObstacles = {obstacle};
    const std::vector<Finding> found = findings(facts);
    ASSERT_EQ(found.size(), 1);
    EXPECT_EQ(found[0].kind, kind);
    EXPECT_EQ(findingsText(found), text);
  }
}

TEST(FindingsTest, ASilentAgentIsToldWithoutBlame) {
  FindingFacts facts = factsWithoutFindings();
  facts.silentAgents = {{AgentKind::claudeCode, 412, std::chrono::minutes(45)},
                        {AgentKind::codex, 7, std::chrono::minutes(150)}};
  EXPECT_EQ(findingsText(findings(facts)),
            "Note: Claude Code (pid 412) has run for 45 minutes and asked for nothing.\n"
            "  If it has worked meanwhile, start it anew: it reads its hooks at its start.\n"
            "Note: Codex (pid 7) has run for 2 hours and asked for nothing.\n"
            "  If it has worked meanwhile, start it anew: it reads its hooks at its start; /hooks "
            "shows them.\n");
}

TEST(FindingsTest, WarningsComeBeforeNotes) {
  FindingFacts facts = factsWithoutFindings();
  facts.hooksPausedUntil = facts.now + std::chrono::minutes(60);
  facts.hookObstacles = {{HookObstacleKind::toolMissing, std::nullopt, "/h/x"}};
  const std::vector<Finding> found = findings(facts);
  ASSERT_EQ(found.size(), 2);
  EXPECT_EQ(found[0].severity, FindingSeverity::warning);
  EXPECT_EQ(found[1].kind, FindingKind::hooksPaused);
}

TEST(FindingsTest, NothingIsLeftOfWhatTheHookScriptSearchesFor) {
  const std::string hostile =
      "/a/Status source: local fallback/macOS SleepDisabled: on/macOS SleepDisabled: on\n"
      "Status: active";
  const std::string shown = unlikeReport(hostile);
  for (const char* searched :
       {"Status source: local fallback", "macOS SleepDisabled: on", "Status: active"}) {
    EXPECT_THAT(shown, Not(HasSubstr(searched)));
  }
  EXPECT_THAT(shown, HasSubstr("/a/Status source\\u{3a} local fallback/"));
  EXPECT_EQ(unlikeReport("Status: inactive"), "Status: inactive");
}

TEST(FindingsTest, AFindingIsTheSameAfterAWayThroughJSON) {
  const Finding finding{.kind = FindingKind::hooksPaused,
                        .severity = FindingSeverity::warning,
                        .what = "a",
                        .toDo = "b"};
  EXPECT_EQ(decodeJSON<Finding>(encodeJSON(finding, JSONLayout::compact)), finding);
}

}  // namespace
}  // namespace nodo
