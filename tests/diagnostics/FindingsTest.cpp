#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/diagnostics/Findings.h>
#include <testing/EnvironmentVariable.h>

#include <array>
#include <random>
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
  EXPECT_EQ(
      findingsText(findings(facts)),
      "Note: Claude Code (pid 412) has run for 45 minutes and asked for nothing.\n"
      "  If it has worked meanwhile, restart it: agents read their hooks when they start.\n"
      "Note: Codex (pid 7) has run for 2 hours and asked for nothing.\n"
      "  If it has worked meanwhile, restart it: agents read their hooks when they start; /hooks "
      "shows them.\n");
}

// ---- what the facts lead to

// A daemon that has nothing to do, and hooks that are all in place.
FindingFacts healthy() {
  FindingFacts facts = factsWithoutFindings();
  facts.restartCommand = "restart it";
  KeepAwakeFacts& lock = facts.keepAwake.emplace();
  lock.lockIsOn = false;
  lock.report.generatedAt = facts.now;
  lock.report.state = NODOState::fresh(facts.now);
  AgentHookSetupInspection& hooks = facts.hooks.emplace();
  hooks.hookScriptStatus = AgentHookComponentStatus::current;
  for (const AgentHookTarget target : allCases<AgentHookTarget>()) {
    hooks.targets.push_back({.target = target, .status = AgentHookComponentStatus::current});
  }
  return facts;
}

void startTimer(FindingFacts& facts) {
  StatusReport& report = facts.keepAwake->report;
  report.state.manualUntil = facts.now + std::chrono::minutes(60);
  report.manualRemainingSeconds = 3600;
  report.decision.shouldPreventSleep = true;
}

TEST(FindingsTest, EveryFactLeadsToItsFinding) {
  const test::EnvironmentVariable zone("TZ", "UTC0");

  const struct {
    const char* name;
    void (*happens)(FindingFacts& facts);
    FindingKind kind;
    FindingSeverity severity;
    const char* what;
    const char* toDo;
  } rows[] = {
      {"no daemon", [](FindingFacts& facts) { facts.keepAwake->daemonFailure = "it is not there"; },
       FindingKind::daemonMissing, FindingSeverity::warning,
       "Nothing can be asked of the daemon: it is not there.",
       "Install the package nodo, or start it: 'restart it'."},
      {"a daemon that hangs",
       [](FindingFacts& facts) {
         facts.keepAwake->daemonFailure = "it hangs";
         facts.daemonIsThere = true;
       },
       FindingKind::daemonMissing, FindingSeverity::warning,
       "Nothing can be asked of the daemon: it hangs.",
       "Where nothing else helps, restart it: 'restart it'."},
      {"a low battery",
       [](FindingFacts& facts) {
         startTimer(facts);
         KeepAwakeFacts& lock = *facts.keepAwake;
         lock.limits = SafetyPolicy{.minimumBatteryPercent = 20};
         lock.report.snapshot.batteryPercent = 15;
         lock.report.decision = {.safetyBlocks = {reason::batteryBelowThreshold}};
       },
       FindingKind::safetyAllowsSleep, FindingSeverity::warning,
       "A safety rule allows sleep although the timer runs: battery at 15 % (limit 20 %).",
       "Plug the charger in or bring the network back; the lock follows at once."},
      {"heat",
       [](FindingFacts& facts) {
         startTimer(facts);
         StatusReport& report = facts.keepAwake->report;
         report.snapshot.thermalPressure = ThermalPressure::critical;
         report.snapshot.hotZone = HotZone{.name = "acpitz", .celsius = 97, .limitCelsius = 95};
         report.decision = {.safetyBlocks = {reason::thermalPressure}};
       },
       FindingKind::thermalPressure, FindingSeverity::warning,
       "A safety rule allows sleep although the timer runs: the computer is too hot (acpitz at 97 "
       "°C, limit 95 °C).",
       "Give it air, or end what keeps it busy; once it has cooled down, the lock follows within a "
       "minute."},
      {"low power mode",
       [](FindingFacts& facts) {
         startTimer(facts);
         StatusReport& report = facts.keepAwake->report;
         report.snapshot.batteryPercent = 60;
         report.decision = {.safetyBlocks = {reason::lowPowerMode}};
       },
       FindingKind::lowPowerMode, FindingSeverity::warning,
       "A safety rule allows sleep although the timer runs: low power mode is on (battery at 60 "
       "%).",
       "Plug the charger in or switch that mode off; the lock follows within a minute."},
      {"a lock that is lost",
       [](FindingFacts& facts) {
         startTimer(facts);
         facts.keepAwake->report.state.ownsSleepDisable = true;
       },
       FindingKind::lockMissing, FindingSeverity::warning,
       "The timer runs, and the sleep lock of nodo is not in force.",
       "The daemon tries again every minute; its log says why it fails."},
      {"a lock without a reason", [](FindingFacts& facts) { facts.keepAwake->lockIsOn = true; },
       FindingKind::lockLeft, FindingSeverity::warning,
       "A sleep lock is on although nothing asks for it.", "'nodoctl repair' releases it."},
      {"a fallback",
       [](FindingFacts& facts) {
         facts.hookFallback = {.isActive = true,
                               .logPath = "/tmp/log",
                               .lastStartedAt = facts.now - std::chrono::minutes(5),
                               .fallbackSeconds = 600};
       },
       FindingKind::fallbackActive, FindingSeverity::warning,
       "A hook could not reach the daemon at 08:10; it keeps this computer awake by itself until "
       "08:20, with the lid open only.",
       "The next request that reaches the daemon takes over."},
      {"settings that make no sense",
       [](FindingFacts& facts) {
         facts.settings.emplace();
         facts.settings->problems = {"/etc/nodo/nodod.toml, line 1: there is no setting \"x\""};
       },
       FindingKind::settingsIgnored, FindingSeverity::warning,
       "The daemon does not heed all of its settings: /etc/nodo/nodod.toml, line 1: there is no "
       "setting \"x\".",
       "Mend the file as nodod(8) says, then: 'restart it'."},
      {"more settings that make no sense",
       [](FindingFacts& facts) {
         facts.settings.emplace();
         facts.settings->problems = {"one", "two", "three"};
       },
       FindingKind::settingsIgnored, FindingSeverity::warning,
       "The daemon does not heed all of its settings: one and 2 more.",
       "Mend the file as nodod(8) says, then: 'restart it'."},
      {"a clock that was set back",
       [](FindingFacts& facts) {
         facts.keepAwake->report.state.updatedAt = facts.now + std::chrono::minutes(61);
       },
       FindingKind::clockSetBack, FindingSeverity::note,
       "The clock was set back: the state was changed at 09:16, which lies ahead.",
       "The timer keeps its length; times of earlier requests may look wrong for a while."},
      {"others",
       [](FindingFacts& facts) {
         for (const int pid : {3, 5, 7, 9}) {
           facts.otherHolders.push_back({.pid = pid, .processName = "player"});
         }
       },
       FindingKind::othersHoldAwake, FindingSeverity::note,
       "Others hold up sleep: player (pid 3), player (pid 5), player (pid 7) and 1 more.",
       "'nodoctl diagnostics' shows what for; nodo leaves them alone."},
      {"no hooks, and no agent",
       [](FindingFacts& facts) {
         for (AgentHookTargetInspection& target : facts.hooks->targets) {
           target.status = AgentHookComponentStatus::missing;
         }
       },
       FindingKind::noAgentSetUp, FindingSeverity::note, "No agent is set up yet.",
       "'nodoctl hooks install' makes agents keep this computer awake while they work."},
      {"no hooks, but an agent",
       [](FindingFacts& facts) {
         facts.agentsHere = {AgentHookTarget::pi};
         for (AgentHookTargetInspection& target : facts.hooks->targets) {
           target.status = AgentHookComponentStatus::missing;
         }
       },
       FindingKind::noAgentSetUp, FindingSeverity::warning, "No agent is set up yet.",
       "'nodoctl hooks install' makes agents keep this computer awake while they work."},
      {"one agent without hooks",
       [](FindingFacts& facts) {
         facts.agentsHere = {AgentHookTarget::grok};
         facts.hooks->targets[2].status = AgentHookComponentStatus::missing;
       },
       FindingKind::hooksMissing, FindingSeverity::note,
       "Grok Build is used here and has no hooks of nodo.",
       "'nodoctl hooks install grok' puts them in."},
      {"an old script",
       [](FindingFacts& facts) {
         facts.hooks->hookScriptStatus = AgentHookComponentStatus::outdated;
       },
       FindingKind::hooksOutdated, FindingSeverity::note,
       "The agents' hooks are those of another version of nodo.",
       "'nodoctl hooks install' brings them up to date."},
      {"old hooks",
       [](FindingFacts& facts) {
         facts.hooks->targets[1].status = AgentHookComponentStatus::outdated;
       },
       FindingKind::hooksOutdated, FindingSeverity::note,
       "The agents' hooks are those of another version of nodo.",
       "'nodoctl hooks install' brings them up to date."}};

  EXPECT_EQ(findings(healthy()), std::vector<Finding>());
  for (const auto& row : rows) {
    FindingFacts facts = healthy();
    row.happens(facts);
    EXPECT_EQ(findings(facts), (std::vector<Finding>{{row.kind, row.severity, row.what, row.toDo}}))
        << row.name;
  }
}

TEST(FindingsTest, RulesThatEndInWaysOfTheirOwnAreFindingsOfTheirOwn) {
  FindingFacts facts = healthy();
  startTimer(facts);
  facts.keepAwake->report.decision = {
      .safetyBlocks = {reason::batteryBelowThreshold, reason::networkUnavailable,
                       reason::thermalPressure, reason::lowPowerMode}};
  const std::vector<Finding> found = findings(facts);
  ASSERT_EQ(found.size(), 3);
  EXPECT_EQ(found[0].kind, FindingKind::safetyAllowsSleep);
  EXPECT_THAT(found[0].what, HasSubstr(": battery_below_threshold, network_unavailable."));
  EXPECT_EQ(found[1].kind, FindingKind::thermalPressure);
  EXPECT_THAT(found[1].what, HasSubstr(": thermal_pressure."));
  EXPECT_EQ(found[2].kind, FindingKind::lowPowerMode);
}

TEST(FindingsTest, WhileNodoHoldsTheLockOthersThatDoAreNoNews) {
  FindingFacts facts = healthy();
  startTimer(facts);
  facts.keepAwake->report.state.ownsSleepDisable = true;
  facts.keepAwake->lockIsOn = true;
  facts.otherHolders = {{.pid = 3, .processName = "player"}};
  EXPECT_EQ(findings(facts), std::vector<Finding>());
}

TEST(FindingsTest, WhereAFileCannotBeReadNobodySaysThatNoAgentIsSetUp) {
  FindingFacts facts = healthy();
  facts.hooks->targets.clear();
  facts.unreadableHooks = {{.target = AgentHookTarget::pi, .path = "/h/p", .error = "no"}};
  const std::vector<Finding> found = findings(facts);
  ASSERT_EQ(found.size(), 1);
  EXPECT_EQ(found[0].kind, FindingKind::hooksUnreadable);
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

// Facts whose foreign texts are made of what the hook script searches for.
class HostileFacts {
 public:
  FindingFacts next() {
    FindingFacts facts{.now = now_, .restartCommand = text()};
    KeepAwakeFacts& lock = facts.keepAwake.emplace();
    lock.report.generatedAt = now_;
    lock.report.state = NODOState::fresh(now_ + std::chrono::minutes(number(120)));
    lock.report.state.ownsSleepDisable = maybe();
    lock.report.decision.shouldPreventSleep = maybe();
    lock.report.decision.safetyBlocks.assign(static_cast<std::size_t>(number(3)), text());
    if (maybe()) {
      lock.report.state.manualUntil = now_ + std::chrono::minutes(5);
      lock.report.manualRemainingSeconds = 300;
    }
    lock.lockIsOn = maybe() ? std::nullopt : std::optional(maybe());
    lock.daemonFailure = maybe() ? std::nullopt : std::optional(text());
    facts.daemonRefusal = text();
    facts.otherHolders.assign(static_cast<std::size_t>(number(5)),
                              {.pid = 1, .processName = text()});
    facts.unreadableHooks = {{.target = AgentHookTarget::pi, .path = text(), .error = text()}};
    for (const HookObstacleKind kind :
         {HookObstacleKind::scriptMissing, HookObstacleKind::toolMissing,
          HookObstacleKind::switchedOff, HookObstacleKind::notTrusted,
          HookObstacleKind::configuredElsewhere}) {
      facts.hookObstacles.push_back({kind, AgentHookTarget::codex, text()});
    }
    return facts;
  }

 private:
  int number(int below) { return std::uniform_int_distribution<int>(0, below - 1)(random_); }

  bool maybe() { return number(2) == 0; }

  std::string text() {
    constexpr std::array pieces{"Status",        "Status source",    ": ",   "local fallback",
                                "Status: ",      "active",           "\n",   "macOS SleepDisabled",
                                "Status source", ": local fallback", ": on", "macOS "};
    std::string made;
    for (int count = number(8); count > 0; --count) {
      made += pieces[static_cast<std::size_t>(number(static_cast<int>(pieces.size())))];
    }
    return made;
  }

  Date now_ = dateFromSeconds(1769847300);
  std::mt19937 random_{14};
};

TEST(FindingsTest, NoLineBelowTheReportCanBeTakenForTheReports) {
  HostileFacts hostile;
  int wouldHaveBeen = 0;
  for (int round = 0; round < 5000; ++round) {
    const FindingFacts facts = hostile.next();
    const std::string below =
        findingsText(findings(facts)) + headline(facts.keepAwake.value()).text + "\n";
    const std::string shown = unlikeReport(below);
    for (const char* searched :
         {"Status source: local fallback", "Status: active", "macOS SleepDisabled: on"}) {
      wouldHaveBeen += below.find(searched) == std::string::npos ? 0 : 1;
      ASSERT_EQ(shown.find(searched), std::string::npos) << shown;
    }
  }
  EXPECT_GT(wouldHaveBeen, 1000) << "these facts are not hostile enough";
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
