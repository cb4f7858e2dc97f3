#include <programs/nodo-menu/MenuModel.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>

namespace nodo::menu {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::StartsWith;

const Date now = dateFromSeconds(1'769'847'300);  // 2026-01-31 08:15 UTC

nodoctl::HealthFacts idle() {
  nodoctl::HealthFacts facts;
  facts.status.report.generatedAt = now;
  facts.status.report.state = NODOState::fresh(now);
  facts.sleepDisabled = false;
  facts.forFindings.now = now;
  AgentHookSetupInspection hooks;
  hooks.hookScriptStatus = AgentHookComponentStatus::current;
  hooks.targets = {
      {.target = AgentHookTarget::claude, .status = AgentHookComponentStatus::current}};
  facts.forFindings.hooks = hooks;
  facts.forFindings.keepAwake = KeepAwakeFacts{.report = facts.status.report, .lockIsOn = false};
  return facts;
}

nodoctl::HealthFacts keptAwake(double minutes = 125) {
  nodoctl::HealthFacts facts = idle();
  StatusReport& report = facts.status.report;
  report.state.manualUntil = now + Seconds(minutes * 60);
  report.state.ownsSleepDisable = true;
  report.state.recordRequester({"Codex", "api", "PreToolUse", now}, now, 6, 200);
  report.decision.shouldPreventSleep = true;
  facts.sleepDisabled = true;
  facts.forFindings.keepAwake = KeepAwakeFacts{.report = report, .lockIsOn = true};
  return facts;
}

nodoctl::HealthFacts withoutDaemon(bool isBroken) {
  nodoctl::HealthFacts facts = idle();
  facts.status.source = DoctorStatusSource::local;
  facts.status.unavailable = nodoctl::Unavailability{
      .reason = "gone", .sentence = "no daemon nodod: gone", .isBroken = isBroken};
  facts.forFindings.daemonIsThere = isBroken;
  facts.forFindings.keepAwake->daemonFailure = "no daemon nodod: gone";
  return facts;
}

class MenuModelTest : public ::testing::Test {
 protected:
  void take(nodoctl::HealthFacts facts) {
    model.take({.number = ++number, .wish = Look(), .facts = std::move(facts)});
  }

  void fail(const Wish& wish, const std::string& why) {
    model.take({.number = ++number, .wish = wish, .failure = why});
  }

  MenuView view() const { return model.view(now); }

  std::uint64_t number = 0;
  MenuModel model{"sudo restart"};
};

TEST_F(MenuModelTest, AtFirstNothingIsKnown) {
  EXPECT_EQ(view().icon, MenuBarIconState::loading);
  EXPECT_EQ(view().failure, std::nullopt);
  EXPECT_EQ(model.history(now), std::nullopt);
  EXPECT_EQ(model.timeToRedraw(now), std::nullopt);
}

TEST_F(MenuModelTest, AFailureBeforeAnythingIsKnownIsAWarningAndIsTold) {
  fail(Look(), "broken\n");
  EXPECT_EQ(view().icon, MenuBarIconState::warning);
  EXPECT_EQ(view().failure, "broken\\n");
  EXPECT_THAT(view().headline, HasSubstr("not known"));
}

TEST_F(MenuModelTest, AnIdleComputerMaySleep) {
  take(idle());
  EXPECT_EQ(view().icon, MenuBarIconState::off);
  EXPECT_THAT(view().headline, StartsWith("Not kept awake"));
  EXPECT_EQ(view().countdown, std::nullopt);
  EXPECT_EQ(view().stop, std::nullopt);
  EXPECT_EQ(view().setup, std::nullopt);
  EXPECT_EQ(model.timeToRedraw(now), std::nullopt);
}

TEST_F(MenuModelTest, AComputerThatIsKeptAwakeShowsForHowLongAndForWhom) {
  take(keptAwake());
  EXPECT_EQ(view().icon, MenuBarIconState::manualActive);
  EXPECT_EQ(view().countdown, "2h5m");
  EXPECT_THAT(iconText(view()), StartsWith("nodo: Kept awake until"));
  EXPECT_THAT(view().notices, Contains(StartsWith("Last request: Codex - api, ")));
  EXPECT_EQ(view().stop->wish, Wish(Stop()));
}

TEST_F(MenuModelTest, TheCountdownFollowsTheClockWithoutAQuestion) {
  take(keptAwake());
  EXPECT_EQ(model.view(now + Seconds(60)).countdown, "2h4m");
  EXPECT_EQ(model.view(now + std::chrono::minutes(125)).countdown, std::nullopt);
}

TEST_F(MenuModelTest, WhileATimerRunsItIsRedrawnAsEachOfItsMinutesEnds) {
  take(keptAwake(1.5));
  EXPECT_EQ(model.timeToRedraw(now), Seconds(30));
  EXPECT_EQ(model.timeToRedraw(now + Seconds(30)), Seconds(60));
  EXPECT_EQ(model.timeToRedraw(now + Seconds(90)), std::nullopt);
}

TEST_F(MenuModelTest, ATimerUnderWhichSafetyAllowsSleepIsAWarning) {
  nodoctl::HealthFacts facts = keptAwake();
  StatusReport& report = facts.status.report;
  report.state.ownsSleepDisable = false;
  report.decision = {.shouldPreventSleep = false, .safetyBlocks = {"battery_below_threshold"}};
  facts.forFindings.keepAwake = KeepAwakeFacts{.report = report, .lockIsOn = false};
  take(facts);
  EXPECT_EQ(view().icon, MenuBarIconState::warning);
  EXPECT_THAT(view().headline, StartsWith("The timer runs, but sleep is allowed"));
  EXPECT_EQ(view().countdown, "2h5m");
  EXPECT_NE(view().stop, std::nullopt);
}

TEST_F(MenuModelTest, ALockThatIsMissingIsAWarning) {
  nodoctl::HealthFacts facts = keptAwake();
  facts.sleepDisabled = false;
  facts.forFindings.keepAwake->lockIsOn = false;
  take(facts);
  EXPECT_EQ(view().icon, MenuBarIconState::warning);
  EXPECT_THAT(view().headline, StartsWith("NOT kept awake"));
}

TEST_F(MenuModelTest, ADaemonThatIsMissingIsAWarningThatSaysWhatToDo) {
  take(withoutDaemon(false));
  EXPECT_EQ(view().icon, MenuBarIconState::warning);
  EXPECT_THAT(view().headline, HasSubstr("no daemon nodod: gone"));
  EXPECT_EQ(view().setup, (MenuEntry{"Setup: install helper: install the package nodo, or sudo "
                                     "restart",
                                     std::nullopt}));
}

TEST_F(MenuModelTest, ADaemonThatIsBrokenIsToBeStartedAnew) {
  take(withoutDaemon(true));
  EXPECT_EQ(view().setup, (MenuEntry{"Setup: repair helper: sudo restart", std::nullopt}));
}

TEST_F(MenuModelTest, ADaemonThatComesBackEndsTheWarning) {
  take(withoutDaemon(false));
  take(idle());
  EXPECT_EQ(view().icon, MenuBarIconState::off);
  EXPECT_EQ(view().setup, std::nullopt);
}

TEST_F(MenuModelTest, AFallbackOfAHookIsAWarning) {
  nodoctl::HealthFacts facts = idle();
  facts.forFindings.hookFallback.isActive = true;
  take(facts);
  EXPECT_EQ(view().icon, MenuBarIconState::warning);
}

TEST_F(MenuModelTest, MissingHooksCanBeInstalledFromTheMenu) {
  nodoctl::HealthFacts facts = idle();
  facts.forFindings.hooks->targets[0].status = AgentHookComponentStatus::missing;
  take(facts);
  EXPECT_EQ(view().icon, MenuBarIconState::warning);
  EXPECT_EQ(view().setup, (MenuEntry{"Setup: install hooks - Install Hooks",
                                     SetUpHooks{AgentHookSetupAction::install}}));
}

TEST_F(MenuModelTest, OutdatedHooksCanBeUpdatedAndTheMenuTellsOfIt) {
  nodoctl::HealthFacts facts = idle();
  facts.forFindings.hooks->targets[0].status = AgentHookComponentStatus::outdated;
  take(facts);
  const SetUpHooks update{AgentHookSetupAction::update};
  ASSERT_EQ(view().setup->wish, Wish(update));
  model.asked(update);
  EXPECT_EQ(view().setup, (MenuEntry{"Updating...", std::nullopt}));
  model.take({.number = ++number,
              .wish = update,
              .facts = idle(),
              .reports = {{.target = "claude", .path = "", .changed = true, .message = "done"}}});
  EXPECT_EQ(view().setup, std::nullopt);
  EXPECT_THAT(view().notices, Contains("Hooks updated for Claude Code"));
  ASSERT_EQ(view().hookRows.size(), 1U);
  EXPECT_EQ(view().hookRows[0].state, AgentHookActionResultState::updated);
}

TEST_F(MenuModelTest, HooksThatCouldNotBeInstalledAreToldOf) {
  take(idle());
  const SetUpHooks install{AgentHookSetupAction::install};
  model.asked(install);
  fail(install, "HOME is not set");
  EXPECT_EQ(view().failure, "HOME is not set");
  EXPECT_THAT(view().notices, Contains("Hook install failed"));
}

TEST_F(MenuModelTest, APauseIsToldOfAndCanBeEnded) {
  take(idle());
  EXPECT_EQ(view().pause->wish, Wish(Pause()));
  nodoctl::HealthFacts facts = idle();
  facts.forFindings.hooksPausedUntil = now + Seconds(90);
  take(facts);
  EXPECT_EQ(view().pause->wish, Wish(Resume()));
  EXPECT_EQ(model.timeToRedraw(now), Seconds(90));
  EXPECT_EQ(model.view(now + Seconds(90)).pause->wish, Wish(Pause()));
}

TEST_F(MenuModelTest, EachAgentThatRunsIsNamedOnce) {
  nodoctl::HealthFacts facts = idle();
  facts.status.report.agents = {{.pid = 1, .kind = AgentKind::claudeCode},
                                {.pid = 2, .kind = AgentKind::claudeCode},
                                {.pid = 3, .kind = AgentKind::pi}};
  take(facts);
  EXPECT_THAT(view().notices, Contains("Running: Claude Code, Pi"));
  take(idle());
  EXPECT_THAT(view().notices, Contains("No agent runs"));
}

TEST_F(MenuModelTest, LengthsAndFullHoursAreOfferedForKeepingAwake) {
  const auto entries = view().keepAwake;
  ASSERT_EQ(entries.size(), 10U);
  EXPECT_EQ(entries[0], (MenuEntry{"20 min", KeepAwake{std::int64_t{20}}}));
  EXPECT_EQ(entries[3], (MenuEntry{"4 h", KeepAwake{std::int64_t{240}}}));
  for (std::size_t i = 4; i < entries.size(); ++i) {
    const auto time = std::get<ClockTime>(std::get<KeepAwake>(*entries[i].wish).until);
    const Seconds ahead = nextTimeOfDay(time, now) - now;
    EXPECT_GT(ahead, Seconds(0));
    EXPECT_LE(ahead, std::chrono::hours(6)) << entries[i].title;
  }
}

TEST_F(MenuModelTest, AFailedWishIsToldOfUntilTheNextOne) {
  take(idle());
  fail(Stop(), "the lock is still on");
  take(idle());
  EXPECT_EQ(view().failure, "the lock is still on");
  model.asked(KeepAwake{std::int64_t{20}});
  EXPECT_EQ(view().failure, std::nullopt);
}

TEST_F(MenuModelTest, AFailedLookLeavesWhatIsKnownAndTheNextOneEndsIt) {
  take(keptAwake());
  fail(Look(), "broken");
  EXPECT_EQ(view().icon, MenuBarIconState::manualActive);
  EXPECT_EQ(view().failure, "broken");
  take(keptAwake());
  EXPECT_EQ(view().failure, std::nullopt);
}

TEST_F(MenuModelTest, TheNewestAnswerWinsWhicheverComesLast) {
  model.take({.number = 2, .wish = Look(), .facts = keptAwake()});
  model.take({.number = 1, .wish = Look(), .facts = idle()});
  EXPECT_EQ(view().icon, MenuBarIconState::manualActive);
  model.take({.number = 3, .wish = Look(), .facts = idle()});
  EXPECT_EQ(view().icon, MenuBarIconState::off);
}

TEST_F(MenuModelTest, TheHistoryIsThatOfTwelveHours) {
  take(keptAwake());
  const auto history = model.history(now);
  ASSERT_TRUE(history);
  EXPECT_EQ(history->until - history->since, Seconds(std::chrono::hours(12)));
  EXPECT_EQ(history->requestMinutes.size(), 1U);
}

}  // namespace
}  // namespace nodo::menu
