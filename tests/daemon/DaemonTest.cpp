#include <NODOCore/control/PowerDecision.h>
#include <testing/DiskFull.h>

#include <tests/daemon/DaemonFixture.h>

namespace nodo {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;
using ::testing::StartsWith;

class DaemonRequestTest : public DaemonFixture {
 protected:
  void SetUp() override { start(); }
};

TEST_F(DaemonRequestTest, ATimerBringsTheLockAtOnceAndTheAnswerSaysSo) {
  const auto response = askManual(20);
  ASSERT_TRUE(response.status);
  EXPECT_TRUE(response.status->state.ownsSleepDisable);
  EXPECT_EQ(response.status->manualRemainingSeconds, 1200);
  EXPECT_TRUE(power.isSleepDisabled);
  EXPECT_TRUE(loop.isLockHeld);
  EXPECT_EQ(stored().lastActivationReason, reason::manualTimer);
}

TEST_F(DaemonRequestTest, AStopReleasesTheLockAtOnceAndTheAnswerSaysSo) {
  askManual(20);
  const auto response = askStop();
  ASSERT_TRUE(response.status);
  EXPECT_FALSE(response.status->state.ownsSleepDisable);
  EXPECT_FALSE(response.status->manualRemainingSeconds);
  EXPECT_FALSE(power.isSleepDisabled);
  EXPECT_FALSE(loop.isLockHeld);
  EXPECT_THAT(auditReasons(), ElementsAre("enable:manual_timer", "release:user_stop"));
}

TEST_F(DaemonRequestTest, TheStatusChangesNothingAndRunsNoPass) {
  putTimer(600, false);
  const std::string before = folder.read("state/state.json");
  const std::size_t timersSet = loop.timersSet;
  const auto response = askStatus();
  ASSERT_TRUE(response.status);
  EXPECT_TRUE(response.status->decision.shouldPreventSleep);
  EXPECT_THAT(power.operations, IsEmpty());
  EXPECT_EQ(folder.read("state/state.json"), before);
  EXPECT_EQ(loop.timersSet, timersSet);
  EXPECT_THAT(lines, IsEmpty());
}

TEST_F(DaemonRequestTest, WhatChangesTheStatusIsAnnouncedAndNothingElseIs) {
  const auto announced = [this](const std::function<void()>& happens) {
    const std::size_t before = loop.announcements;
    happens();
    return loop.announcements - before;
  };
  EXPECT_EQ(announced([this] { askManual(20); }), 1U);
  EXPECT_EQ(announced([this] { askStatus(); }), 0U);
  EXPECT_EQ(announced([this] { machineChanged(); }), 0U) << "the machine is as it was";
  EXPECT_EQ(announced([this] { wait(120); }), 0U) << "time passes";
  machine->batteryPercent = 50;
  EXPECT_EQ(announced([this] { machineChanged(); }), 1U);
  EXPECT_EQ(announced([this] { askStop(); }), 1U);
  EXPECT_EQ(announced([this] { askReconcile(); }), 0U);
}

TEST_F(DaemonRequestTest, LooksThatFollowEachOtherShareAnAnswer) {
  const auto first = askStatus();
  machine->batteryPercent = 50;
  pass(0.9 * Daemon::answerLifetime);
  EXPECT_EQ(askStatus(), first);
  pass(0.1 * Daemon::answerLifetime);
  EXPECT_EQ(askStatus().status->snapshot.batteryPercent, 50);
}

TEST_F(DaemonRequestTest, ALookAfterAChangeIsNew) {
  askStatus();
  askManual(20);
  EXPECT_EQ(askStatus().status->manualRemainingSeconds, 1200);
  askStop();
  EXPECT_FALSE(askStatus().status->manualRemainingSeconds);
}

TEST_F(DaemonRequestTest, ALookAfterNewsIsNew) {
  askStatus();
  machine->batteryPercent = 50;
  machineChanged();
  EXPECT_EQ(askStatus().status->snapshot.batteryPercent, 50);
}

TEST_F(DaemonRequestTest, AnAnswerLastsByTheClockThatNobodySets) {
  machine->batteryPercent = 80;
  askStatus();
  machine->batteryPercent = 50;
  now -= Seconds(3600);
  EXPECT_EQ(askStatus().status->snapshot.batteryPercent, 80);
  pass(Daemon::answerLifetime);
  EXPECT_EQ(askStatus().status->snapshot.batteryPercent, 50);
}

TEST_F(DaemonRequestTest, AReconcileAnswersWithItsRun) {
  putTimer(600, false);
  const auto response = askReconcile();
  ASSERT_TRUE(response.run);
  ASSERT_TRUE(response.run->operation);
  EXPECT_EQ(response.run->operation->action, PowerOperationAction::disableSleep);
  EXPECT_TRUE(response.run->stateChanged);
  EXPECT_TRUE(power.isSleepDisabled);
}

TEST_F(DaemonRequestTest, ARepairReleasesTheLockAndAnswersWithTheStatus) {
  askManual(20);
  lines.clear();
  const auto response = askRepair();
  ASSERT_TRUE(response.status);
  EXPECT_EQ(response.status->state.lastStopReason, reason::repair);
  EXPECT_FALSE(response.status->state.ownsSleepDisable);
  EXPECT_FALSE(power.isSleepDisabled);
  EXPECT_THAT(lines, ElementsAre("sleep lock switched off (repair)"));
}

TEST_F(DaemonRequestTest, ARequesterIsRecordedWithTheDaemonsTime) {
  askManualV2(20, true, "Claude Code", "project", "PreToolUse");
  EXPECT_EQ(stored().lastRequester,
            ActivationRequester("Claude Code", "project", "PreToolUse", now));
  EXPECT_EQ(stored().manualUntil, now + Seconds(1200));
}

TEST_F(DaemonRequestTest, WithoutANameNobodyIsRecorded) {
  askManualV2(20, false, std::nullopt, "project", "PreToolUse");
  EXPECT_FALSE(stored().lastRequester);
  EXPECT_THAT(stored().recentRequesters, IsEmpty());
}

TEST_F(DaemonRequestTest, AnExtensionNeverShortensARunningTimer) {
  askManual(60);
  const auto response = askManualV2(20, true, "Codex");
  ASSERT_TRUE(response.status);
  EXPECT_EQ(response.status->manualRemainingSeconds, 3600);
  EXPECT_EQ(response.status->state.lastRequester->name, "Codex");
}

TEST_F(DaemonRequestTest, ARefusedDurationChangesNothingAndIsLogged) {
  askManual(20);
  lines.clear();
  const std::string before = folder.read("state/state.json");
  const auto response = askManualV2(721, false, "Pi");
  EXPECT_EQ(response.error, "Invalid duration: minutes must be <= 720");
  EXPECT_EQ(askManual(0).error, "Invalid duration: minutes must be greater than 0");
  EXPECT_EQ(folder.read("state/state.json"), before);
  EXPECT_TRUE(power.isSleepDisabled);
  EXPECT_THAT(
      lines,
      ElementsAre("request failed: manual of Pi: Invalid duration: minutes must be <= 720",
                  "request failed: manual: Invalid duration: minutes must be greater than 0"));
}

TEST_F(DaemonRequestTest, AnUnreadableStateFailsEveryRequestAndIsLeftAsItIs) {
  breakState();
  EXPECT_TRUE(askStatus().error);
  EXPECT_TRUE(askManual(20).error);
  EXPECT_TRUE(askManualV2(20, true, "Pi").error);
  EXPECT_TRUE(askStop().error);
  EXPECT_TRUE(askReconcile().error);
  EXPECT_TRUE(askRepair().error);
  terminate();
  EXPECT_EQ(folder.read("state/state.json"), "{");
  EXPECT_FALSE(power.isSleepDisabled);
}

TEST_F(DaemonRequestTest, AnUnreadableStateIsNamedInTheAnswerAndInTheLog) {
  breakState();
  const std::string begin = "the state file " + store().stateURL().string() + " cannot be read: ";
  const std::string end = "; move it away to begin with a fresh state";
  const auto names = [&](const std::string& before) {
    return AllOf(StartsWith(before + begin + "expected JSON, found an error at line 1, column "),
                 EndsWith(end));
  };
  EXPECT_THAT(askStatus().error.value_or(""), names(""));
  EXPECT_THAT(askManualV2(20, true, "Pi").error.value_or(""), names(""));
  machineChanged();
  EXPECT_THAT(
      lines, ElementsAre(names("request failed: status: "), names("request failed: manual of Pi: "),
                         names("pass failed (power supply): ")));
}

TEST_F(DaemonRequestTest, AFailingLookIsLoggedOnce) {
  breakState();
  for (int look = 0; look < 5; ++look) {
    EXPECT_TRUE(askForNewStatus().error);
  }
  EXPECT_THAT(lines, ElementsAre(StartsWith("request failed: status: the state file ")));
}

TEST_F(DaemonRequestTest, AFailingLookIsLoggedAgainForAnotherReason) {
  machine->snapshotFails = true;
  askForNewStatus();
  askForNewStatus();
  machine->snapshotFails = false;
  machine->listingFails = true;
  askForNewStatus();
  askForNewStatus();
  EXPECT_THAT(lines, ElementsAre("request failed: status: Unable to run fake: "
                                 "No such file or directory",
                                 "request failed: status: Unable to list processes: broken"));
}

TEST_F(DaemonRequestTest, AFailingLookIsLoggedAgainAfterASuccess) {
  const std::function<void()> successes[] = {[this] { EXPECT_TRUE(askForNewStatus().status); },
                                             [this] { EXPECT_TRUE(askManual(20).status); },
                                             [this] { machineChanged(); }};
  for (const auto& succeed : successes) {
    succeed();
    lines.clear();
    machine->listingFails = true;
    askForNewStatus();
    askForNewStatus();
    machine->listingFails = false;
    EXPECT_THAT(lines, ElementsAre("request failed: status: Unable to list processes: broken"));
  }
}

TEST_F(DaemonRequestTest, AFailingChangeIsLoggedEachTime) {
  breakState();
  askStop();
  lines.clear();
  askManual(20);
  askStatus();
  askManual(20);
  askStatus();
  EXPECT_THAT(lines, ElementsAre(StartsWith("request failed: manual: "),
                                 StartsWith("request failed: status: "),
                                 StartsWith("request failed: manual: ")));
}

TEST_F(DaemonRequestTest, ASuccessfulLookDoesNotRepeatTheFailureOfPasses) {
  askManual(20);
  lines.clear();
  const test::DiskFull full;
  machine->lidClosed = true;  // a change that every pass wants to save
  for (int minute = 0; minute < 5; ++minute) {
    EXPECT_TRUE(askStatus().status);
    machineChanged();
  }
  EXPECT_THAT(lines, ElementsAre(StartsWith("pass failed (power supply): Unable to write ")));
}

TEST_F(DaemonRequestTest, RequestsSucceedAgainOnceTheStateCanBeRead) {
  breakState();
  EXPECT_TRUE(askManual(20).error);
  std::filesystem::remove(store().stateURL());
  EXPECT_TRUE(askManual(20).status);
  EXPECT_TRUE(power.isSleepDisabled);
}

TEST_F(DaemonRequestTest, AFullDiskFailsTheRequestAndTheLockStaysOff) {
  const test::DiskFull full;
  EXPECT_TRUE(askManual(20).error);
  EXPECT_FALSE(power.isSleepDisabled);
}

TEST_F(DaemonRequestTest, ATimerWithoutTheLockIsAFailureAndTheNextPassMendsIt) {
  power.behaviour = test::FakePowerManager::Behaviour::cannotRun;
  EXPECT_THAT(askManual(20).error.value_or(""),
              StartsWith("the timer is set, but the sleep lock does not follow it yet: Unable"));
  EXPECT_EQ(stored().manualUntil, now + Seconds(1200));
  power.behaviour = test::FakePowerManager::Behaviour::works;
  wait(60);
  EXPECT_TRUE(power.isSleepDisabled);
}

TEST_F(DaemonRequestTest, ALockThatTheSystemRefusesIsAFailureAndIsTriedEveryMinute) {
  power.behaviour = test::FakePowerManager::Behaviour::fails;
  const std::string refusal = "switching the sleep lock on failed (exit 1): refused";
  const std::string answer =
      "the timer is set, but the sleep lock does not follow it yet: " + refusal;
  EXPECT_EQ(askManual(20).error, answer);
  EXPECT_FALSE(askStatus().status->state.ownsSleepDisable);
  wait(300);
  EXPECT_GE(power.operations.size(), 5U);
  EXPECT_THAT(lines, ElementsAre(refusal, "request failed: manual: " + answer));
  power.behaviour = test::FakePowerManager::Behaviour::works;
  wait(60);
  EXPECT_TRUE(power.isSleepDisabled);
}

TEST_F(DaemonRequestTest, ASimulatedLockIsNoFailure) {
  power.behaviour = test::FakePowerManager::Behaviour::simulates;
  EXPECT_TRUE(askManual(20).status);
  EXPECT_TRUE(askStop().status);
}

TEST_F(DaemonRequestTest, OnlyChangesOfTheLockAreLogged) {
  askManualV2(20, true, "Claude Code", "project");
  askManualV2(20, true, "Claude Code", "project");
  askStatus();
  askReconcile();
  machineChanged();
  wait(600);
  askStop();
  askStop();
  EXPECT_THAT(lines,
              ElementsAre("sleep lock switched on (enable:manual_timer, Claude Code - project)",
                          "sleep lock switched off (release:user_stop)"));
}

TEST_F(DaemonRequestTest, SleepIsAskedForWhenTheLidIsClosedOnBattery) {
  closeLidOnBattery();
  askManual(20);
  askStop();
  EXPECT_EQ(power.sleepRequests, 1);
  EXPECT_THAT(lines, ElementsAre("sleep lock switched on (enable:manual_timer)",
                                 "sleep lock switched off (release:user_stop)",
                                 "asked for sleep (closed_lid_release)"));
}

TEST_F(DaemonFixture, ATakenNameEndsTheDaemonBeforeItTouchesAnything) {
  putTimer(600, true);
  nameIsTaken = true;
  EXPECT_THROW(start(), std::runtime_error);
  EXPECT_THAT(power.operations, IsEmpty());
  EXPECT_TRUE(stored().ownsSleepDisable);
}

}  // namespace
}  // namespace nodo
