#include <testing/DiskFull.h>

#include <tests/daemon/DaemonFixture.h>

namespace nodo {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using Behaviour = test::FakePowerManager::Behaviour;

/// A daemon that holds the lock for twenty minutes when things begin to fail.
class LockKeeperFailureTest : public DaemonFixture {
 protected:
  void SetUp() override {
    start();
    askManual(20);
    ASSERT_TRUE(power.isSleepDisabled);
    lines.clear();
    power.operations.clear();
  }
};

TEST_F(LockKeeperFailureTest, ALockOutlastsAPassThatFails) {
  machine->snapshotFails = true;
  wait(60);
  EXPECT_TRUE(power.isSleepDisabled);
  machine->snapshotFails = false;
  wait(600);
  EXPECT_TRUE(power.isSleepDisabled);
  EXPECT_THAT(power.operations, IsEmpty());
}

TEST_F(LockKeeperFailureTest, ALockThatNoPassConfirmsForTwoMinutesIsReleased) {
  machine->snapshotFails = true;
  wait(119);
  EXPECT_TRUE(power.isSleepDisabled);
  wait(1);
  EXPECT_FALSE(power.isSleepDisabled);
  EXPECT_FALSE(loop.isLockHeld);
  EXPECT_FALSE(stored().ownsSleepDisable);
  EXPECT_EQ(stored().lastPowerOperation->reason, "release:unconfirmed");
  EXPECT_THAT(lines, ElementsAre("pass failed (timer): Unable to run fake: "
                                 "No such file or directory",
                                 "sleep lock switched off (release:unconfirmed)"));
}

TEST_F(LockKeeperFailureTest, TheLockComesBackWhenPassesSucceedAgain) {
  machine->snapshotFails = true;
  wait(300);
  EXPECT_FALSE(power.isSleepDisabled);
  machine->snapshotFails = false;
  wait(60);
  EXPECT_TRUE(power.isSleepDisabled);
  EXPECT_TRUE(stored().ownsSleepDisable);
}

TEST_F(LockKeeperFailureTest, OnceTheTimerIsOverNothingIsTriedAnyMore) {
  machine->snapshotFails = true;
  wait(1300);
  EXPECT_FALSE(loop.timer);
}

TEST_F(LockKeeperFailureTest, TheEndOfTheTimerIsNotMissedWhenPassesFail) {
  wait(1199 - 60);
  machine->snapshotFails = true;
  wait(59);
  EXPECT_TRUE(power.isSleepDisabled);
  wait(3);
  EXPECT_FALSE(power.isSleepDisabled);
}

TEST_F(LockKeeperFailureTest, AnUnreadableStateKeepsTheLockNoLonger) {
  breakState();
  wait(120);
  EXPECT_FALSE(power.isSleepDisabled);
  EXPECT_EQ(folder.read("state/state.json"), "{");
  wait(3600);
  EXPECT_THAT(power.operations, ElementsAre(PowerOperationAction::enableSleep));
  EXPECT_FALSE(loop.timer);
}

TEST_F(LockKeeperFailureTest, TheLastKnownEndHoldsForAnUnreadableState) {
  wait(1199);
  breakState();
  wait(3);
  EXPECT_FALSE(power.isSleepDisabled);
}

TEST_F(LockKeeperFailureTest, ADifferentFailureIsToldOfAndTheSameOneIsNot) {
  machine->snapshotFails = true;
  wait(61);
  machineChanged();
  machine->snapshotFails = false;
  machine->listingFails = true;
  machineChanged();
  machineChanged();
  EXPECT_THAT(lines, ElementsAre("pass failed (timer): Unable to run fake: "
                                 "No such file or directory",
                                 "pass failed (power supply): Unable to list processes: broken"));
}

TEST_F(LockKeeperFailureTest, AFailureThatComesBackIsToldOfAgain) {
  const std::string failure =
      "pass failed (power supply): Unable to run fake: No such file or directory";
  for (int time = 0; time < 2; ++time) {
    machine->snapshotFails = true;
    machineChanged();
    machine->snapshotFails = false;
    machineChanged();
  }
  EXPECT_THAT(lines, ElementsAre(failure, failure));
}

TEST_F(LockKeeperFailureTest, AClockThatStepsBackGivesAFailingLockNoMoreTime) {
  now -= Seconds(36000);
  machine->snapshotFails = true;
  machineChanged();
  wait(119);
  EXPECT_TRUE(power.isSleepDisabled);
  wait(1);
  EXPECT_FALSE(power.isSleepDisabled);
}

TEST_F(LockKeeperFailureTest, WithTheLidClosedOnBatteryTheMachineIsSentToSleep) {
  closeLidOnBattery();
  breakState();
  wait(120);
  EXPECT_THAT(power.operations,
              ElementsAre(PowerOperationAction::enableSleep, PowerOperationAction::sleepNow));
}

TEST_F(LockKeeperFailureTest, WhenTheMachineCannotBeSeenItsLastSightCounts) {
  closeLidOnBattery();
  wait(60);
  machine->snapshotFails = true;
  wait(120);
  EXPECT_EQ(power.sleepRequests, 1);
  EXPECT_EQ(stored().lastPowerOperation->reason, "closed_lid_release");
}

TEST_F(LockKeeperFailureTest, AFullDiskDoesNotKeepTheMachineFromSleep) {
  closeLidOnBattery();
  wait(1199);
  const test::DiskFull full;
  wait(3);
  EXPECT_FALSE(power.isSleepDisabled);
  EXPECT_EQ(power.sleepRequests, 1);
}

TEST_F(LockKeeperFailureTest, AMachineThatWasSentToSleepIsNotSentThereTwice) {
  closeLidOnBattery();
  std::optional<test::DiskFull> full;
  power.beforeOperation = [&](PowerOperationAction action) {
    if (action == PowerOperationAction::sleepNow) {
      full.emplace();
    }
  };
  wait(1202);
  EXPECT_FALSE(power.isSleepDisabled);
  EXPECT_EQ(power.sleepRequests, 1);
}

TEST_F(LockKeeperFailureTest, AStateThatCannotBeWrittenDoesNotMakeTheLockFlap) {
  {
    const test::DiskFull full;
    machine->lidClosed = true;  // a change that every pass wants to save
    wait(600);
    EXPECT_FALSE(power.isSleepDisabled);
    EXPECT_THAT(power.operations, ElementsAre(PowerOperationAction::enableSleep));
  }
  wait(60);
  EXPECT_TRUE(power.isSleepDisabled);
  EXPECT_TRUE(stored().ownsSleepDisable);
}

TEST_F(LockKeeperFailureTest, ALockThatCouldNotBeRecordedIsNotTakenOverAndOver) {
  machine->powerSource = PowerSource::battery;
  machine->batteryPercent = 10;
  machineChanged();
  EXPECT_FALSE(power.isSleepDisabled);
  power.operations.clear();
  const test::DiskFull full;
  machine->powerSource = PowerSource::ac;
  machineChanged();
  EXPECT_TRUE(power.isSleepDisabled);
  wait(180);
  EXPECT_FALSE(power.isSleepDisabled);
  power.operations.clear();
  wait(600);
  EXPECT_THAT(power.operations, IsEmpty());
}

TEST_F(LockKeeperFailureTest, ATimerAfterAReleaseThatCouldNotBeSavedGetsTheLock) {
  lockDiesWithProcess = false;
  start();
  {
    const test::DiskFull full;
    wait(1202);
    EXPECT_FALSE(power.isSleepDisabled);
    EXPECT_TRUE(stored().ownsSleepDisable);
  }
  EXPECT_TRUE(askManual(20).status);
  EXPECT_TRUE(power.isSleepDisabled);
}

TEST_F(LockKeeperFailureTest, ALockThatOutlivesProcessesIsTakenAgainAfterAnUnrecordedRelease) {
  lockDiesWithProcess = false;
  start();
  {
    const test::DiskFull full;
    machine->lidClosed = true;
    wait(300);
    EXPECT_FALSE(power.isSleepDisabled);
    EXPECT_TRUE(stored().ownsSleepDisable);
  }
  wait(60);
  EXPECT_TRUE(power.isSleepDisabled);
}

TEST_F(LockKeeperFailureTest, AForeignLockIsNotReleasedBecausePassesFail) {
  askStop();
  terminate();
  std::filesystem::remove(store().stateURL());
  lockDiesWithProcess = false;
  power.isSleepDisabled = true;
  power.operations.clear();
  machine->snapshotFails = true;
  start();
  wait(600);
  EXPECT_THAT(power.operations, IsEmpty());
}

TEST_F(LockKeeperFailureTest, AMarkedLockWithAnUnreadableStateIsReleasedAtTheStart) {
  lockDiesWithProcess = false;
  start();
  breakState();
  start();
  EXPECT_FALSE(power.isSleepDisabled);
  EXPECT_FALSE(std::filesystem::exists(mark()));
}

TEST_F(LockKeeperFailureTest, ALockThatNothingProvesOursIsLeftAloneWithAnUnreadableState) {
  lockDiesWithProcess = false;
  breakState();
  start();
  wait(600);
  EXPECT_TRUE(power.isSleepDisabled);
}

TEST_F(LockKeeperFailureTest, AReleaseThatFailsIsTriedAgain) {
  lockDiesWithProcess = false;
  start();
  breakState();
  power.behaviour = Behaviour::cannotRun;
  wait(600);
  EXPECT_TRUE(power.isSleepDisabled);
  EXPECT_TRUE(loop.timer);
  power.behaviour = Behaviour::works;
  wait(60);
  EXPECT_FALSE(power.isSleepDisabled);
}

TEST_F(LockKeeperFailureTest, ALockThatFailsAgainAfterItWorkedIsToldOfAgain) {
  const auto failToStop = [this] {
    power.behaviour = Behaviour::fails;
    askStop();
    wait(120);
    power.behaviour = Behaviour::works;
    wait(60);
  };
  failToStop();
  askManual(20);
  failToStop();
  EXPECT_THAT(lines, Contains(StartsWith("switching the sleep lock off failed")).Times(2));
}

TEST_F(LockKeeperFailureTest, AStopReleasesTheLockWhateverFails) {
  breakState();
  EXPECT_TRUE(askStop().error);
  EXPECT_FALSE(power.isSleepDisabled);
  EXPECT_THAT(lines, Contains("sleep lock switched off (release:user_stop)"));
}

TEST_F(LockKeeperFailureTest, AStopThatCouldNotBeWrittenIsMadeUpFor) {
  {
    const test::DiskFull full;
    EXPECT_TRUE(askStop().error);
    EXPECT_FALSE(power.isSleepDisabled);
    EXPECT_TRUE(stored().manualUntil);
  }
  wait(60);
  EXPECT_FALSE(power.isSleepDisabled);
  EXPECT_FALSE(stored().manualUntil);
  EXPECT_EQ(stored().lastStopReason, "user_stop");
}

TEST_F(LockKeeperFailureTest, ATimerThatIsSetAfterAFailedStopCounts) {
  {
    const test::DiskFull full;
    EXPECT_TRUE(askStop().error);
  }
  EXPECT_TRUE(askManual(20).status);
  wait(60);
  EXPECT_TRUE(power.isSleepDisabled);
}

TEST_F(LockKeeperFailureTest, AnExtensionAfterAFailedStopDoesNotBringTheOldTimerBack) {
  askManual(700);
  {
    const test::DiskFull full;
    EXPECT_TRUE(askStop().error);
  }
  wait(30);
  const auto response = askManualV2(20, true, "Codex");
  ASSERT_TRUE(response.status);
  EXPECT_EQ(response.status->manualRemainingSeconds, 1200);
  EXPECT_EQ(stored().manualUntil, now + Seconds(1200));
  EXPECT_TRUE(power.isSleepDisabled);
  wait(1202);
  EXPECT_FALSE(power.isSleepDisabled);
}

TEST_F(LockKeeperFailureTest, ARefusedDurationDoesNotMakeAFailedStopForgotten) {
  {
    const test::DiskFull full;
    EXPECT_TRUE(askStop().error);
  }
  EXPECT_TRUE(askManualV2(721, true, "Codex").error);
  wait(61);
  EXPECT_FALSE(power.isSleepDisabled);
  EXPECT_FALSE(stored().manualUntil);
}

TEST_F(LockKeeperFailureTest, AnExtensionThatCannotBeWrittenDoesNotMakeAFailedStopForgotten) {
  {
    const test::DiskFull full;
    EXPECT_TRUE(askStop().error);
    EXPECT_TRUE(askManualV2(20, true, "Codex").error);
    EXPECT_FALSE(power.isSleepDisabled);
  }
  wait(61);
  EXPECT_FALSE(power.isSleepDisabled);
  EXPECT_FALSE(stored().manualUntil);
}

TEST_F(LockKeeperFailureTest, AStopWithoutASightOfTheMachineReleasesTheLock) {
  machine->snapshotFails = true;
  EXPECT_TRUE(askStop().error);
  EXPECT_FALSE(power.isSleepDisabled);
  EXPECT_FALSE(stored().manualUntil);
  EXPECT_THAT(lines, Contains("sleep lock switched off (release:user_stop)"));
}

TEST_F(LockKeeperFailureTest, ARepairReleasesTheLockOfAnUnreadableState) {
  breakState();
  EXPECT_TRUE(askRepair().error);
  EXPECT_FALSE(power.isSleepDisabled);
  EXPECT_THAT(lines, Contains("sleep lock switched off (release:repair)"));
}

TEST_F(LockKeeperFailureTest, ARepairThatCouldNotBeWrittenIsMadeUpFor) {
  {
    const test::DiskFull full;
    EXPECT_TRUE(askRepair().error);
    EXPECT_FALSE(power.isSleepDisabled);
    wait(61);
    EXPECT_FALSE(power.isSleepDisabled);
    EXPECT_TRUE(stored().manualUntil);
  }
  wait(61);
  EXPECT_FALSE(power.isSleepDisabled);
  EXPECT_FALSE(stored().manualUntil);
}

TEST_F(LockKeeperFailureTest, ATimerThatIsSetAfterAFailedRepairCounts) {
  {
    const test::DiskFull full;
    EXPECT_TRUE(askRepair().error);
  }
  const auto response = askManualV2(10, true, "Codex");
  ASSERT_TRUE(response.status);
  EXPECT_EQ(response.status->manualRemainingSeconds, 600);
  wait(61);
  EXPECT_TRUE(power.isSleepDisabled);
}

TEST_F(LockKeeperFailureTest, ARepairThatSucceedsAfterAFailedOneLeavesNothingToBeMadeUpFor) {
  {
    const test::DiskFull full;
    EXPECT_TRUE(askRepair().error);
  }
  EXPECT_TRUE(askRepair().status);
  EXPECT_TRUE(askReconcile().run);
  EXPECT_EQ(stored().lastStopReason, "repair");
}

TEST_F(LockKeeperFailureTest, ATimerOfAStateThatCannotBeServedAtTheStartIsTriedEveryMinute) {
  terminate();
  machine->snapshotFails = true;
  start();
  EXPECT_FALSE(power.isSleepDisabled);
  machine->snapshotFails = false;
  wait(60);
  EXPECT_TRUE(power.isSleepDisabled);
}

}  // namespace
}  // namespace nodo
