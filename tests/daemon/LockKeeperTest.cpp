#include <NODOCore/daemon/LockMark.h>
#include <testing/DiskFull.h>

#include <tests/daemon/DaemonFixture.h>

namespace nodo {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using Action = PowerOperationAction;
using Behaviour = test::FakePowerManager::Behaviour;

/// A lock like a Mac's: it outlives the process that switched it on, and is marked.
class LastingLockTest : public DaemonFixture {
 protected:
  void SetUp() override {
    lockDiesWithProcess = false;
    start();
  }

  bool isMarked() const { return std::filesystem::exists(mark()); }

  void refuse(Action action, Behaviour behaviour = Behaviour::fails) {
    power.beforeOperation = [this, action, behaviour](Action each) {
      power.behaviour = each == action ? behaviour : Behaviour::works;
    };
  }

  void allowAll() {
    power.beforeOperation = nullptr;
    power.behaviour = Behaviour::works;
  }

  /// As a power cut ends it.
  void kill() { start(); }
};

// ---- a release that the system refuses

TEST_F(LastingLockTest, ARepairWhoseReleaseIsRefusedFailsAndIsTriedEveryMinute) {
  askManual(20);
  refuse(Action::enableSleep);
  EXPECT_EQ(askRepair().error,
            "the sleep lock could not be released: "
            "switching the sleep lock off failed (exit 1): refused");
  wait(130);
  EXPECT_TRUE(power.isSleepDisabled);
  EXPECT_TRUE(askForNewStatus().status->state.ownsSleepDisable);
  allowAll();
  wait(60);
  EXPECT_FALSE(power.isSleepDisabled);
  EXPECT_FALSE(isMarked());
}

TEST_F(LastingLockTest, ARepairOfAForeignLockThatIsRefusedIsTriedAgain) {
  power.isSleepDisabled = true;
  refuse(Action::enableSleep);
  EXPECT_TRUE(askRepair().error);
  allowAll();
  wait(61);
  EXPECT_FALSE(power.isSleepDisabled);
}

TEST_F(LastingLockTest, AStopWhoseReleaseIsRefusedFailsAndIsTriedEveryMinute) {
  askManual(20);
  refuse(Action::enableSleep);
  EXPECT_THAT(askStop().error.value_or(""), StartsWith("the sleep lock could not be released: "));
  EXPECT_FALSE(stored().manualUntil);
  allowAll();
  wait(60);
  EXPECT_FALSE(power.isSleepDisabled);
}

TEST_F(LastingLockTest, ASwitchThatWasRefusedIsTakenBackOnceNothingWantsTheLock) {
  refuse(Action::disableSleep);
  EXPECT_TRUE(askManual(1).error);
  EXPECT_TRUE(isMarked());
  wait(62);
  EXPECT_THAT(power.operations, Contains(Action::enableSleep)) << "it may still come to pass";
  EXPECT_FALSE(isMarked());
  EXPECT_FALSE(loop.timer);
}

// ---- who else switches it

TEST_F(LastingLockTest, ALockThatSomebodySwitchesOffIsTakenAgainAndToldOf) {
  askManual(20);
  lines.clear();
  power.isSleepDisabled = false;
  wait(60);
  EXPECT_TRUE(power.isSleepDisabled);
  EXPECT_TRUE(stored().ownsSleepDisable);
  EXPECT_THAT(lines, ElementsAre("somebody else has switched the sleep lock off",
                                 "sleep lock switched on (enable:manual_timer)"));
}

TEST_F(LastingLockTest, WhoeverSwitchesItOffThreeTimesHasItsWayUntilTheNextRequest) {
  askManual(60);
  for (int time = 0; time < 3; ++time) {
    power.isSleepDisabled = false;
    wait(60);
  }
  EXPECT_FALSE(power.isSleepDisabled);
  EXPECT_FALSE(stored().ownsSleepDisable) << "the status must not say that it is kept awake";
  EXPECT_THAT(lines, Contains("somebody else goes on switching the sleep lock off; it is taken "
                              "again at the next request"));
  machineChanged();
  wait(1200);
  EXPECT_FALSE(power.isSleepDisabled);
  askManualV2(20, true, "Codex");
  EXPECT_TRUE(power.isSleepDisabled);
}

TEST_F(LastingLockTest, LossesThatLieFarApartAreNoContest) {
  askManual(120);
  for (int time = 0; time < 4; ++time) {
    power.isSleepDisabled = false;
    wait(301);
    EXPECT_TRUE(power.isSleepDisabled);
  }
}

TEST_F(LastingLockTest, ATimerThatEndsAfterYieldingLeavesNothingBehind) {
  askManual(5);
  for (int time = 0; time < 3; ++time) {
    power.isSleepDisabled = false;
    wait(60);
  }
  wait(120);
  EXPECT_FALSE(stored().manualUntil);
  EXPECT_FALSE(isMarked());
  EXPECT_FALSE(loop.timer);
}

TEST_F(LastingLockTest, ALockThatNobodyOwnsIsReleasedWhereNodoWasInUse) {
  askManual(20);
  askStop();
  power.isSleepDisabled = true;
  machineChanged();
  EXPECT_FALSE(power.isSleepDisabled);
}

// ---- the mark

TEST_F(LastingLockTest, TheMarkIsThereBeforeTheLockAndGoesAfterIt) {
  std::vector<bool> marked;
  power.beforeOperation = [&](Action /*action*/) { marked.push_back(isMarked()); };
  EXPECT_FALSE(isMarked());
  askManual(20);
  askStop();
  EXPECT_THAT(marked, ElementsAre(true, true));
  EXPECT_FALSE(isMarked());
}

TEST_F(LastingLockTest, TheMarkIsForItsUserAlone) {
  askManual(20);
  EXPECT_EQ(std::filesystem::status(mark()).permissions(), std::filesystem::perms(0600));
}

TEST_F(LastingLockTest, AMarkThatCannotBeWrittenIsNone) {
  LockMark written(mark());
  const test::DiskFull full;
  EXPECT_THROW(written.set(), std::system_error);
  EXPECT_FALSE(written.isSet());
  EXPECT_FALSE(isMarked());
}

TEST_F(LastingLockTest, WithoutAPlaceForTheMarkTheLockIsNotTaken) {
  folder.write("lock-mark/file", "");
  EXPECT_THAT(askManual(20).error.value_or(""),
              HasSubstr("Unable to mark the sleep lock as nodo's"));
  EXPECT_FALSE(power.isSleepDisabled);
  std::filesystem::remove_all(mark());
  wait(60);
  EXPECT_TRUE(power.isSleepDisabled);
}

TEST_F(LastingLockTest, TheMarkOfAKilledDaemonIsTakenOver) {
  askManual(20);
  kill();
  EXPECT_TRUE(power.isSleepDisabled);
  EXPECT_TRUE(isMarked());
  askStop();
  EXPECT_FALSE(isMarked());
}

TEST_F(LastingLockTest, AMarkOfAProcessThatLivesIsNotTakenOver) {
  askManual(20);
  LockMark other(mark());
  EXPECT_FALSE(other.isSet());
  EXPECT_THROW(other.set(), std::system_error);
  EXPECT_TRUE(isMarked());
}

TEST_F(LastingLockTest, APlantedLinkInThePlaceOfTheMarkIsNotFollowed) {
  folder.write("victim", "precious");
  std::filesystem::create_symlink(folder / "victim", mark());
  EXPECT_TRUE(askManual(20).error);
  EXPECT_EQ(folder.read("victim"), "precious");
}

TEST_F(LastingLockTest, ALockWithoutAMarkThatTheStateOwnsIsMarked) {
  terminate();
  power.isSleepDisabled = true;
  putTimer(600, true);
  kill();
  EXPECT_TRUE(isMarked());
  EXPECT_TRUE(power.isSleepDisabled);
  std::filesystem::remove(store().stateURL());
  EXPECT_TRUE(askForNewStatus().status->state.ownsSleepDisable);
}

TEST_F(LastingLockTest, AMarkThatSomebodyRemovedIsNoTrouble) {
  askManual(20);
  std::filesystem::remove(mark());
  askStop();
  EXPECT_FALSE(power.isSleepDisabled);
  EXPECT_THAT(lines, ElementsAre("sleep lock switched on (enable:manual_timer)",
                                 "sleep lock switched off (release:user_stop)"));
}

TEST_F(LastingLockTest, AStateFolderThatVanishesWhileTheLockIsOnIsMadeUpForByTheMark) {
  askManual(20);
  std::filesystem::remove_all(store().directory);
  kill();
  EXPECT_FALSE(power.isSleepDisabled);
  EXPECT_FALSE(isMarked());
}

TEST_F(LastingLockTest, AMarkedLockThatTheStateForgotIsOwnedAgain) {
  askManual(20);
  NODOState state = stored();
  state.ownsSleepDisable = false;
  put(state);
  kill();
  EXPECT_TRUE(stored().ownsSleepDisable);
  wait(1202);
  EXPECT_FALSE(power.isSleepDisabled);
}

// ---- sleep that is due

TEST_F(LastingLockTest, ASleepThatIsRefusedIsAskedForUntilTheMachineSlept) {
  closeLidOnBattery();
  askManual(20);
  refuse(Action::sleepNow);
  askStop();
  EXPECT_EQ(power.operations.back(), Action::sleepNow);
  EXPECT_TRUE(isMarked()) << "a later process has to ask";
  power.operations.clear();
  wait(180);
  EXPECT_THAT(power.operations, ElementsAre(Action::sleepNow, Action::sleepNow, Action::sleepNow));
  power.operations.clear();
  loop.handlers.machineChanged({News::resume});
  wait(600);
  EXPECT_THAT(power.operations, IsEmpty());
  EXPECT_FALSE(isMarked());
  EXPECT_FALSE(loop.timer);
}

TEST_F(LastingLockTest, ASleepThatIsDueEndsWithTheLidOrTheMains) {
  for (const bool opens : {true, false}) {
    closeLidOnBattery();
    askManual(20);
    refuse(Action::sleepNow);
    askStop();
    power.operations.clear();
    (opens ? machine->lidClosed = false : machine->lidClosed);
    machine->powerSource = opens ? PowerSource::battery : PowerSource::ac;
    machineChanged();
    wait(600);
    EXPECT_THAT(power.operations, IsEmpty());
    EXPECT_FALSE(isMarked());
  }
}

TEST_F(LastingLockTest, ASleepThatIsDueEndsWithATimer) {
  closeLidOnBattery();
  askManual(20);
  refuse(Action::sleepNow);
  askStop();
  askManual(20);
  power.operations.clear();
  wait(600);
  EXPECT_THAT(power.operations, IsEmpty());
}

TEST_F(LastingLockTest, ASleepThatIsDueIsNotForgottenByARestart) {
  closeLidOnBattery();
  askManual(20);
  refuse(Action::sleepNow);
  askStop();
  power.operations.clear();
  kill();
  EXPECT_THAT(power.operations, Contains(Action::sleepNow));
  machine->lidClosed = false;
  kill();
  EXPECT_FALSE(isMarked());
}

TEST_F(LastingLockTest, ADaemonThatEndsWithTheLidClosedOnBatterySendsTheMachineToSleep) {
  closeLidOnBattery();
  askManual(20);
  terminate();
  EXPECT_EQ(power.operations.back(), Action::sleepNow);
}

// ---- clocks

TEST_F(LastingLockTest, AClockThatIsPutBackLeavesTheTimerItsLength) {
  askManual(20);
  now -= Seconds(30 * 86400);
  EXPECT_EQ(askForNewStatus().status->manualRemainingSeconds, 1199);
  wait(1202);
  EXPECT_FALSE(power.isSleepDisabled);
}

TEST_F(LastingLockTest, AClockThatIsPutAheadLeavesTheTimerItsLength) {
  askManual(20);
  now += Seconds(30 * 86400);
  machineChanged();
  EXPECT_TRUE(power.isSleepDisabled);
  EXPECT_EQ(askStatus().status->manualRemainingSeconds, 1200);
  wait(1202);
  EXPECT_FALSE(power.isSleepDisabled);
}

TEST_F(LastingLockTest, AClockThatIsPutBackLeavesTheMissingRouteItsGrace) {
  askManual(60);
  machine->defaultRouteAvailable = false;
  machineChanged();
  wait(200);
  now -= Seconds(86400);
  wait(102);
  EXPECT_FALSE(power.isSleepDisabled);
}

TEST_F(LastingLockTest, AClockThatIsPutBackLeavesHeatItsGrace) {
  askManual(60);
  machine->thermalPressure = ThermalPressure::serious;
  machine->lidClosed = true;
  machineChanged();
  wait(60);
  now -= Seconds(86400);
  wait(59);
  EXPECT_TRUE(power.isSleepDisabled);
  wait(3);
  EXPECT_FALSE(power.isSleepDisabled);
}

TEST_F(LastingLockTest, AClockThatIsPutAheadLeavesHeatItsGrace) {
  askManual(60);
  machine->thermalPressure = ThermalPressure::serious;
  machine->lidClosed = true;
  machineChanged();
  now += Seconds(600);
  wait(119);
  EXPECT_TRUE(power.isSleepDisabled);
}

TEST_F(LastingLockTest, HeatOfTheFutureCountsFromNow) {
  askManual(60);
  NODOState state = stored();
  state.seriousHeatSince = now + Seconds(86400);
  put(state);
  machine->thermalPressure = ThermalPressure::serious;
  machine->lidClosed = true;
  machineChanged();
  wait(122);
  EXPECT_FALSE(power.isSleepDisabled);
}

TEST_F(LastingLockTest, AClockStepWhileTheStateCannotBeWrittenIsMadeUpFor) {
  askManual(20);
  {
    const test::DiskFull full;
    now -= Seconds(86400);
    machineChanged();
  }
  wait(60);
  EXPECT_EQ(askForNewStatus().status->manualRemainingSeconds, 1139);
}

TEST_F(LastingLockTest, ATimerNeverEndsBeyondTheLongestFromNow) {
  NODOState state = NODOState::fresh(now);
  state.manualUntil = now + Seconds(251'500'000'000);
  put(state);
  EXPECT_EQ(askStatus().status->manualRemainingSeconds, 720 * 60);
  machineChanged();
  EXPECT_EQ(stored().manualUntil, now + Seconds(720 * 60));
  EXPECT_EQ(askManualV2(20, true, "Pi").status->manualRemainingSeconds, 720 * 60);
}

TEST_F(LastingLockTest, ALostRouteOfTheFutureCountsFromNow) {
  askManual(60);
  NODOState state = stored();
  state.noRouteUnavailableSince = now + Seconds(86400);
  put(state);
  machine->defaultRouteAvailable = false;
  machineChanged();
  wait(302);
  EXPECT_FALSE(power.isSleepDisabled);
}

// ---- what the status says

TEST_F(LastingLockTest, TheStatusOwnsTheLockAlsoWhenTheStateFileIsGone) {
  askManual(20);
  std::filesystem::remove(store().stateURL());
  EXPECT_TRUE(askForNewStatus().status->state.ownsSleepDisable);
}

TEST_F(LastingLockTest, TheStatusDoesNotOwnALockThatIsOffThoughThatCouldNotBeWritten) {
  askManual(20);
  const test::DiskFull full;
  EXPECT_TRUE(askStop().error);
  const StatusReport status = *askForNewStatus().status;
  EXPECT_FALSE(status.state.ownsSleepDisable);
  EXPECT_FALSE(status.manualRemainingSeconds);
}

// ---- what is written and told

TEST_F(LastingLockTest, AStopIsAnsweredWithTheStatusAfterIt) {
  askManual(20);
  const auto answer = askStop();
  ASSERT_TRUE(answer.status);
  EXPECT_EQ(answer.status->state.lastStopReason, "not_armed");
  EXPECT_FALSE(answer.status->state.ownsSleepDisable);
  EXPECT_FALSE(answer.status->decision.shouldPreventSleep);
}

TEST_F(LastingLockTest, AReleaseOutsideOfAPassThatIsRefusedLeavesTheStateItsOwnership) {
  askManual(20);
  refuse(Action::enableSleep);
  EXPECT_FALSE(keeper->shutDown(moment()));
  EXPECT_TRUE(stored().ownsSleepDisable);
  EXPECT_EQ(stored().lastPowerOperation.value().exitCode, 1);
}

TEST_F(LastingLockTest, AStopIsWrittenOnce) {
  askManual(20);
  askStop();
  const NODOState afterStop = stored();
  pass(Seconds(100));
  machineChanged();
  EXPECT_EQ(stored(), afterStop);
}

TEST_F(LastingLockTest, AReleaseOutsideOfAPassIsDatedInTheState) {
  askManual(20);
  pass(Seconds(30));
  terminate();
  EXPECT_EQ(stored().updatedAt, now);
  EXPECT_EQ(stored().lastPowerOperation->occurredAt, now);
}

TEST_F(LastingLockTest, AReleaseThatCannotBeWrittenIsToldOf) {
  askManual(20);
  const test::DiskFull full;
  askStop();
  EXPECT_THAT(lines, Contains(StartsWith("the release of the sleep lock cannot be recorded: ")));
}

TEST_F(LastingLockTest, AReleaseWhoseToolIsMissingIsToldOf) {
  askManual(20);
  refuse(Action::enableSleep, Behaviour::cannotRun);
  terminate();
  EXPECT_THAT(lines, Contains(StartsWith("the sleep lock cannot be released: ")));
}

// ---- the cost of a request

TEST_F(LastingLockTest, AResumeLooksAtTheMachineOnce) {
  const int before = machine->snapshotsTaken;
  loop.handlers.machineChanged({News::resume});
  EXPECT_EQ(machine->snapshotsTaken, before + 1);
}

TEST_F(LastingLockTest, ARequestLooksAtTheMachineOnce) {
  const int before = machine->snapshotsTaken;
  askManual(20);
  EXPECT_EQ(machine->snapshotsTaken, before + 1);
  askStop();
  EXPECT_EQ(machine->snapshotsTaken, before + 2);
  askRepair();
  EXPECT_EQ(machine->snapshotsTaken, before + 3);
}

}  // namespace
}  // namespace nodo
