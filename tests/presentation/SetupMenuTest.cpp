#include <NODOCore/presentation/SetupMenu.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace nodo {
namespace {

using Menu = SetupMenuPresentation;
using Flag = bool SetupMenuSignals::*;

const SetupMenuSignals ready{.helperIsReady = true, .hooksAreReady = true};

SetupMenuSignals with(SetupMenuSignals signals, const std::vector<Flag>& flags) {
  for (const Flag flag : flags) {
    signals.*flag = true;
  }
  return signals;
}

SetupMenuSignals withPartialHooks(std::optional<std::int64_t> installed,
                                  std::optional<std::int64_t> total) {
  return {.helperIsReady = true,
          .hooksPartialInstalled = installed,
          .hooksPartialTotal = total,
          .hooksFailed = true};
}

const SetupMenuSignals allBroken =
    with(withPartialHooks(1, 4),
         {&SetupMenuSignals::helperNeedsRepair, &SetupMenuSignals::helperNeedsUpdate,
          &SetupMenuSignals::helperNeedsInstall, &SetupMenuSignals::helperNeedsApproval,
          &SetupMenuSignals::powerLockPending, &SetupMenuSignals::hooksNeedUpdate,
          &SetupMenuSignals::hooksNeedInstall});

TEST(SetupMenuTest, ACompleteSetupHasNothingToSay) {
  EXPECT_EQ(Menu::setupLine(ready), std::nullopt);
  EXPECT_FALSE(Menu::prefersExpandedSetup(ready));
  EXPECT_TRUE(ready.isSetupComplete());
  EXPECT_FALSE(ready.isSetupIncomplete());
  EXPECT_EQ(Menu::setupIncompleteStatusTitle(ready, true), std::nullopt);
}

TEST(SetupMenuTest, TheMostUrgentProblemIsShown) {
  SetupMenuSignals signals = allBroken;
  const std::vector<std::pair<Flag, std::string>> inOrder{
      {&SetupMenuSignals::helperNeedsRepair, "Setup: repair helper"},
      {&SetupMenuSignals::helperNeedsUpdate, "Helper update available"},
      {&SetupMenuSignals::helperNeedsInstall, "Setup: install helper"},
      {&SetupMenuSignals::helperNeedsApproval, "Setup: approve Login Items"},
      {&SetupMenuSignals::powerLockPending, "Power lock: pending"},
      {&SetupMenuSignals::hooksNeedUpdate, "Hooks update available"}};
  for (const auto& [flag, line] : inOrder) {
    EXPECT_EQ(Menu::setupLine(signals), line);
    signals.*flag = false;
  }
  EXPECT_EQ(Menu::setupLine(signals), "Setup: hooks 1/4");
  signals.hooksPartialTotal.reset();
  EXPECT_EQ(Menu::setupLine(signals), "Setup: hooks failed");
  signals.hooksFailed = false;
  EXPECT_EQ(Menu::setupLine(signals), "Setup: install hooks");
  signals.hooksNeedInstall = false;
  EXPECT_EQ(Menu::setupLine(signals), std::nullopt);
}

TEST(SetupMenuTest, ReadyHooksHideEveryProblemOfHooksButAnUpdate) {
  SetupMenuSignals signals = with(withPartialHooks(1, 4), {&SetupMenuSignals::hooksAreReady,
                                                           &SetupMenuSignals::hooksNeedInstall});
  EXPECT_EQ(Menu::setupLine(signals), std::nullopt);
  signals.hooksNeedUpdate = true;
  EXPECT_EQ(Menu::setupLine(signals), "Hooks update available");
}

TEST(SetupMenuTest, PartOfTheHooksIsCountedBeforeAFailureIsShown) {
  EXPECT_EQ(Menu::setupLine(withPartialHooks(3, 4)), "Setup: hooks 3/4");
  EXPECT_EQ(Menu::setupLine(withPartialHooks(0, 1)), "Setup: hooks 0/1");
}

TEST(SetupMenuTest, ACountWithoutATotalIsNone) {
  EXPECT_EQ(Menu::setupLine(withPartialHooks(3, 0)), "Setup: hooks failed");
  EXPECT_EQ(Menu::setupLine(withPartialHooks(3, -1)), "Setup: hooks failed");
  EXPECT_EQ(Menu::setupLine(withPartialHooks(3, std::nullopt)), "Setup: hooks failed");
  EXPECT_EQ(Menu::setupLine(withPartialHooks(std::nullopt, 4)), "Setup: hooks failed");
}

TEST(SetupMenuTest, AHelperThatIsBrokenIsNotOperationalAlthoughAnUpdateWaits) {
  const SetupMenuSignals signals =
      with({}, {&SetupMenuSignals::helperNeedsRepair, &SetupMenuSignals::helperNeedsUpdate});
  EXPECT_EQ(Menu::setupLine(signals), "Setup: repair helper");
  EXPECT_FALSE(signals.helperIsOperational());
}

TEST(SetupMenuTest, AHelperWithNothingButAnUpdateWaitingIsOperational) {
  const SetupMenuSignals update = with({}, {&SetupMenuSignals::helperNeedsUpdate});
  EXPECT_FALSE(SetupMenuSignals().helperIsOperational());
  EXPECT_TRUE(update.helperIsOperational());
  for (const Flag flag :
       {&SetupMenuSignals::helperNeedsRepair, &SetupMenuSignals::helperNeedsApproval,
        &SetupMenuSignals::helperNeedsInstall}) {
    EXPECT_FALSE(with(update, {flag}).helperIsOperational());
    EXPECT_TRUE(with(ready, {flag}).helperIsOperational());
  }
}

TEST(SetupMenuTest, AHelperUpdateLeavesTheSetupCompleteButOpensItsSection) {
  SetupMenuSignals signals = with(ready, {&SetupMenuSignals::helperNeedsUpdate});
  for (const bool helperIsReady : {true, false}) {
    signals.helperIsReady = helperIsReady;
    EXPECT_EQ(Menu::setupLine(signals), "Helper update available");
    EXPECT_TRUE(signals.isSetupComplete());
    EXPECT_TRUE(Menu::prefersExpandedSetup(signals));
    EXPECT_EQ(Menu::setupIncompleteStatusTitle(signals, true), std::nullopt);
  }
}

TEST(SetupMenuTest, APendingLockOpensTheSectionOfACompleteSetup) {
  const SetupMenuSignals signals = with(ready, {&SetupMenuSignals::powerLockPending});
  EXPECT_EQ(Menu::setupLine(signals), "Power lock: pending");
  EXPECT_TRUE(signals.isSetupComplete());
  EXPECT_TRUE(Menu::prefersExpandedSetup(signals));
}

TEST(SetupMenuTest, OutdatedHooksMakeTheSetupIncomplete) {
  const SetupMenuSignals signals = with(ready, {&SetupMenuSignals::hooksNeedUpdate});
  EXPECT_TRUE(signals.isSetupIncomplete());
  EXPECT_EQ(Menu::setupLine(signals), "Hooks update available");
  EXPECT_TRUE(Menu::prefersExpandedSetup(signals));
  EXPECT_EQ(Menu::setupIncompleteStatusTitle(signals, true), "Setup incomplete");
}

TEST(SetupMenuTest, AnIncompleteSetupOpensItsSectionEvenWithoutALine) {
  for (const SetupMenuSignals& signals :
       {SetupMenuSignals{.helperIsReady = true}, SetupMenuSignals{.hooksAreReady = true}}) {
    EXPECT_EQ(Menu::setupLine(signals), std::nullopt);
    EXPECT_TRUE(Menu::prefersExpandedSetup(signals));
  }
}

TEST(SetupMenuTest, TheTitleWaitsUntilTheAssistantIsDismissed) {
  EXPECT_EQ(Menu::setupIncompleteStatusTitle({}, false), std::nullopt);
  EXPECT_EQ(Menu::setupIncompleteStatusTitle({}, true), "Setup incomplete");
}

TEST(SetupMenuTest, SuppressedRemindersLeaveOnlyTheLine) {
  const SetupMenuSignals signals = with(allBroken, {&SetupMenuSignals::remindersSuppressed});
  EXPECT_EQ(Menu::setupLine(signals), "Setup: repair helper");
  EXPECT_FALSE(Menu::prefersExpandedSetup(signals));
  EXPECT_EQ(Menu::setupIncompleteStatusTitle(signals, true), std::nullopt);
}

}  // namespace
}  // namespace nodo
