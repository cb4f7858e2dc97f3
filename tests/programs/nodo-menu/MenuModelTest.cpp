#include <programs/nodo-menu/MenuModel.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include <tests/programs/nodo-menu/SampleFacts.h>

namespace nodo::menu {
namespace {

using sample::idle;
using sample::keptAwake;
using sample::now;
using sample::vetoed;
using sample::withoutDaemon;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class MenuModelTest : public ::testing::Test {
 protected:
  MenuModelTest() { model.hearsNews(true); }

  void take(nodoctl::HealthFacts facts, Look look = {}) {
    model.take({.number = ++number, .wish = look, .facts = std::move(facts)});
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
  EXPECT_EQ(view().stop, std::nullopt);
  EXPECT_EQ(view().setup, std::nullopt);
  EXPECT_EQ(model.timeToRedraw(now), std::nullopt);
}

TEST_F(MenuModelTest, AComputerThatIsKeptAwakeShowsForHowLongAndForWhom) {
  take(keptAwake());
  EXPECT_EQ(view().icon, MenuBarIconState::manualActive);
  EXPECT_THAT(iconText(view()), StartsWith("nodo: Kept awake until"));
  EXPECT_THAT(iconText(view()), HasSubstr("2 h 5 min left"));
  EXPECT_THAT(view().notices, Contains(StartsWith("Last request: Codex - api, ")));
  EXPECT_EQ(view().stop->wish, Wish(Stop()));
}

TEST_F(MenuModelTest, TheCountdownFollowsTheClockWithoutAQuestion) {
  take(keptAwake());
  EXPECT_THAT(model.view(now + Seconds(60)).headline, HasSubstr("2 h 4 min left"));
  EXPECT_THAT(model.view(now + std::chrono::minutes(125)).headline,
              ::testing::Not(HasSubstr("left)")));
}

TEST_F(MenuModelTest, WhileATimerRunsItIsRedrawnAsEachOfItsMinutesEnds) {
  take(keptAwake(1.5));
  EXPECT_EQ(model.timeToRedraw(now), Seconds(30));
  EXPECT_EQ(model.timeToRedraw(now + Seconds(31)), Seconds(59 + 2)) << "the daemon ends it first";
  EXPECT_EQ(model.timeToRedraw(now + Seconds(90)), std::nullopt);
}

TEST_F(MenuModelTest, ATimerUnderWhichSafetyAllowsSleepIsAWarning) {
  take(vetoed());
  EXPECT_EQ(view().icon, MenuBarIconState::warning);
  EXPECT_THAT(view().headline, StartsWith("The timer runs, but sleep is allowed"));
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
  EXPECT_EQ(
      view().setup,
      (SetupView{.line = "Setup: install helper",
                 .action = MenuEntry{"install the package nodo, or sudo restart", std::nullopt}}));
}

TEST_F(MenuModelTest, ADaemonThatIsBrokenIsToBeStartedAnew) {
  take(withoutDaemon(true));
  EXPECT_EQ(view().setup, (SetupView{.line = "Setup: repair helper",
                                     .action = MenuEntry{"sudo restart", std::nullopt}}));
}

TEST_F(MenuModelTest, ADaemonThatComesBackEndsTheWarning) {
  take(withoutDaemon(false));
  take(idle());
  EXPECT_EQ(view().icon, MenuBarIconState::off);
  EXPECT_EQ(view().setup, std::nullopt);
}

TEST_F(MenuModelTest, AFallbackOfAHookIsAWarning) {
  nodoctl::HealthFacts facts = idle();
  facts.forFindings.hookFallback = {
      .isActive = true, .logPath = "", .lastStartedAt = now, .fallbackSeconds = 600};
  take(facts);
  EXPECT_EQ(view().icon, MenuBarIconState::warning);
  EXPECT_THAT(view().notices.front(), StartsWith("A hook could not reach the daemon"));
}

TEST_F(MenuModelTest, MissingHooksCanBeInstalledFromTheMenu) {
  nodoctl::HealthFacts facts = idle();
  facts.forFindings.hooks->targets[0].status = AgentHookComponentStatus::missing;
  take(facts);
  EXPECT_EQ(view().icon, MenuBarIconState::warning);
  EXPECT_EQ(
      view().setup,
      (SetupView{.line = "Setup: install hooks",
                 .action = MenuEntry{"Install Hooks", SetUpHooks{AgentHookSetupAction::install}}}));
}

TEST_F(MenuModelTest, RemindersOfHooksThatArePutOffNeitherChangeTheIconNorOpenTheSetup) {
  nodoctl::HealthFacts facts = idle();
  facts.forFindings.hooks->targets[0].status = AgentHookComponentStatus::missing;
  take(facts);
  model.putOffReminders(now + Seconds(60));
  EXPECT_EQ(view().icon, MenuBarIconState::off);
  ASSERT_TRUE(view().setup);
  EXPECT_FALSE(view().setup->isExpanded);
  EXPECT_TRUE(model.view(now + Seconds(60)).setup->isExpanded);
  EXPECT_EQ(model.view(now + Seconds(60)).icon, MenuBarIconState::warning);
}

TEST_F(MenuModelTest, AMissingDaemonIsAWarningWhateverIsPutOff) {
  model.putOffReminders(now + Seconds(60));
  take(withoutDaemon(false));
  EXPECT_EQ(view().icon, MenuBarIconState::warning);
}

TEST_F(MenuModelTest, OutdatedHooksCanBeUpdatedAndTheMenuTellsOfIt) {
  nodoctl::HealthFacts facts = idle();
  facts.forFindings.hooks->targets[0].status = AgentHookComponentStatus::outdated;
  take(facts);
  const SetUpHooks update{AgentHookSetupAction::update};
  ASSERT_EQ(view().setup->action->wish, Wish(update));
  EXPECT_EQ(model.setupResult(), std::nullopt);
  model.asked(update);
  EXPECT_EQ(view().setup->action, (MenuEntry{"Updating...", std::nullopt}));
  EXPECT_EQ(model.setupResult(), std::nullopt);
  model.take({.number = ++number,
              .wish = update,
              .facts = idle(),
              .reports = {{.target = "claude", .path = "", .changed = true, .message = "done"}}});
  EXPECT_EQ(view().setup, std::nullopt);
  EXPECT_THAT(view().notices, Contains("Hooks updated for Claude Code"));
  EXPECT_EQ(model.setupResult(), "Hooks updated for Claude Code\nClaude Code: updated");
}

TEST_F(MenuModelTest, HooksThatCouldNotBeInstalledAreToldOf) {
  take(idle());
  const SetUpHooks install{AgentHookSetupAction::install};
  model.asked(install);
  fail(install, "HOME is not set");
  EXPECT_EQ(view().failure, "HOME is not set");
  EXPECT_THAT(view().notices, Contains("Hook install failed"));
  EXPECT_EQ(model.setupResult(), "Hook install failed\nHOME is not set");
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

TEST(KeepAwakeEntriesTest, TheirWordsAreTheirMinutes) {
  const std::vector<MenuEntry> entries = keepAwakeEntries();
  ASSERT_EQ(entries.size(), 4U);
  EXPECT_EQ(entries[0], (MenuEntry{"20 minutes", KeepAwake{std::int64_t{20}}}));
  EXPECT_EQ(entries[1], (MenuEntry{"1 hour", KeepAwake{std::int64_t{60}}}));
  EXPECT_EQ(entries[2], (MenuEntry{"2 hours", KeepAwake{std::int64_t{120}}}));
  EXPECT_EQ(entries[3], (MenuEntry{"4 hours", KeepAwake{std::int64_t{240}}}));
}

TEST_F(MenuModelTest, WithNewsNothingIsAskedWhileNothingChanges) {
  take(idle());
  EXPECT_EQ(model.timeToAsk(now), std::nullopt);
}

TEST_F(MenuModelTest, WithoutNewsItAsksEveryFewSeconds) {
  take(idle());
  model.hearsNews(false);
  EXPECT_EQ(model.timeToAsk(now), Seconds(5));
}

TEST_F(MenuModelTest, AsLongAsNothingIsKnownItAsksEveryFewSeconds) {
  fail(Look(), "broken");
  EXPECT_EQ(model.timeToAsk(now), Seconds(5));
}

TEST_F(MenuModelTest, WithoutADaemonItLooksOnceAMinuteForWhatHooksDoAlone) {
  take(withoutDaemon(true));
  EXPECT_EQ(model.timeToAsk(now), Seconds(60));
}

TEST_F(MenuModelTest, AfterTheTimersEndItAsksInCaseNobodyTells) {
  take(keptAwake(1));
  EXPECT_EQ(model.timeToAsk(now), Seconds(62));
  EXPECT_EQ(model.timeToAsk(now + Seconds(62)), std::nullopt);
}

TEST_F(MenuModelTest, AFallbacksEndIsLookedFor) {
  nodoctl::HealthFacts facts = idle();
  facts.forFindings.hookFallback = {
      .isActive = true, .logPath = "", .lastStartedAt = now - Seconds(100), .fallbackSeconds = 600};
  take(facts);
  EXPECT_EQ(model.timeToAsk(now), Seconds(502));
}

TEST_F(MenuModelTest, TheReasonsAreThoseOfTheLastLookThatFoundThemOut) {
  take(keptAwake());
  EXPECT_EQ(model.why(now), std::nullopt);
  nodoctl::HealthFacts facts = keptAwake();
  facts.forFindings.hooksPausedUntil = now + Seconds(600);
  take(facts, {.findsReasons = true});
  take(idle());
  const auto why = model.why(now);
  ASSERT_TRUE(why);
  ASSERT_EQ(why->findings.size(), 1U);
  EXPECT_EQ(why->findings[0].kind, FindingKind::hooksPaused);
  EXPECT_THAT(why->report, HasSubstr("Ready: nodo owns"));
  model.forgetReasons();
  EXPECT_EQ(model.why(now), std::nullopt);
}

TEST_F(MenuModelTest, AFailedWishIsToldOfUntilTheNextOne) {
  take(idle());
  model.take({.number = ++number, .wish = Stop(), .facts = idle(), .failure = "still on"});
  take(idle());
  EXPECT_EQ(view().failure, "still on");
  model.asked(KeepAwake{std::int64_t{20}});
  EXPECT_EQ(view().failure, std::nullopt);
}

TEST_F(MenuModelTest, AFailedWishIsForgottenOnceThingsStandOtherwise) {
  const Wish wish = KeepAwake{std::int64_t{20}};
  model.take({.number = ++number, .wish = wish, .facts = vetoed(), .failure = "battery is low"});
  EXPECT_EQ(view().failure, "battery is low");
  take(keptAwake());
  EXPECT_EQ(view().failure, std::nullopt);
}

TEST_F(MenuModelTest, AfterAFailedLookNothingIsSaidToBeKeptAwakeUntilTheNextOne) {
  take(keptAwake());
  fail(Look(), "broken");
  EXPECT_EQ(view().icon, MenuBarIconState::warning);
  EXPECT_THAT(view().headline, HasSubstr("not known"));
  EXPECT_EQ(view().failure, "broken");
  EXPECT_EQ(model.timeToAsk(now), Seconds(5));
  take(keptAwake());
  EXPECT_EQ(view().icon, MenuBarIconState::manualActive);
  EXPECT_EQ(view().failure, std::nullopt);
}

TEST_F(MenuModelTest, WhatIsDoubtfulIsLookedAtAgainSoonAndThenEachMinute) {
  nodoctl::HealthFacts facts = keptAwake();
  facts.forFindings.keepAwake->lockIsOn = false;
  take(facts);
  EXPECT_EQ(model.timeToAsk(now), Seconds(2));
  take(facts);
  EXPECT_EQ(model.timeToAsk(now), Seconds(60));
}

TEST_F(MenuModelTest, AnInstallationUnderWayIsNotForgottenForAnotherWish) {
  nodoctl::HealthFacts facts = idle();
  facts.forFindings.hooks->targets[0].status = AgentHookComponentStatus::missing;
  take(facts);
  model.asked(SetUpHooks{AgentHookSetupAction::install});
  model.asked(Stop());
  EXPECT_EQ(view().setup->action, (MenuEntry{"Installing...", std::nullopt}));
}

TEST_F(MenuModelTest, TheEndOfWhatWasPutOffIsShown) {
  take(idle());
  model.putOffReminders(now + Seconds(90));
  EXPECT_EQ(model.timeToRedraw(now), Seconds(90));
}

TEST_F(MenuModelTest, WhatCouldNotBeSeenIsTold) {
  nodoctl::HealthFacts facts = idle();
  facts.problems = {"no agents can be found: \x1b"};
  take(facts, {.findsReasons = true});
  EXPECT_THAT(view().notices, Contains("no agents can be found: \\u{1b}"));
  EXPECT_THAT(model.why(now)->report, HasSubstr("no agents can be found: \\u{1b}"));
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
