#include <NODOCore/control/PowerDecision.h>

#include <tests/daemon/DaemonFixture.h>

namespace nodo {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Behaviour = test::FakePowerManager::Behaviour;

class DaemonScheduleTest : public DaemonFixture {};

TEST_F(DaemonScheduleTest, WithoutATimerNothingWakesTheDaemon) {
  start();
  EXPECT_FALSE(loop.timer);
  askStatus();
  machineChanged();
  EXPECT_FALSE(loop.timer);
  askManual(20);
  askStop();
  EXPECT_FALSE(loop.timer);
}

TEST_F(DaemonScheduleTest, TheLockIsLookedAfterEveryMinuteWhileItIsHeld) {
  start();
  askManual(20);
  EXPECT_EQ(loop.timer, Seconds(60));
  wait(60);
  EXPECT_EQ(loop.timer, Seconds(60));
}

TEST_F(DaemonScheduleTest, TheEndOfTheTimerReleasesTheLockASecondLater) {
  start();
  askManual(1);
  wait(59);
  EXPECT_TRUE(power.isSleepDisabled);
  wait(2);
  EXPECT_FALSE(power.isSleepDisabled);
  EXPECT_EQ(stored().lastStopReason, reason::manualExpired);
  EXPECT_FALSE(stored().manualUntil);
  EXPECT_FALSE(loop.timer);
}

TEST_F(DaemonScheduleTest, AStateThatEndsSoonIsServedFromTheStart) {
  putTimer(2, false);
  start();
  EXPECT_TRUE(power.isSleepDisabled);
  EXPECT_EQ(loop.timer, Seconds(3));
  wait(3);
  EXPECT_FALSE(power.isSleepDisabled);
}

TEST_F(DaemonScheduleTest, AnEmptyBatteryReleasesTheLockAtTheMachinesNews) {
  start();
  askManual(20);
  machine->powerSource = PowerSource::battery;
  machine->batteryPercent = 20;
  machineChanged();
  EXPECT_FALSE(power.isSleepDisabled);
  EXPECT_EQ(stored().lastStopReason, reason::batteryBelowThreshold);
  EXPECT_FALSE(loop.timer);
  machine->powerSource = PowerSource::ac;
  machineChanged();
  EXPECT_TRUE(power.isSleepDisabled);
}

TEST_F(DaemonScheduleTest, TheLoopLearnsWhatEachPassSawAndNothingFromOneThatFailed) {
  machine->batteryPercent = 80;
  start();
  ASSERT_TRUE(loop.seen);
  EXPECT_EQ(loop.seen->batteryPercent, 80);
  machine->batteryPercent = 79;
  machineChanged();
  ASSERT_TRUE(loop.seen);
  EXPECT_EQ(loop.seen->batteryPercent, 79);
  breakState();
  machineChanged();
  EXPECT_FALSE(loop.seen);
}

TEST_F(DaemonScheduleTest, AHangupIsAPass) {
  start();
  askManual(20);
  machine->powerSource = PowerSource::battery;
  machine->batteryPercent = 20;
  loop.handlers.hungUp();
  EXPECT_FALSE(power.isSleepDisabled);
  breakState();
  lines.clear();
  loop.handlers.hungUp();
  ASSERT_FALSE(lines.empty());
  EXPECT_THAT(lines.back(), ::testing::StartsWith("pass failed (hangup): "));
}

TEST_F(DaemonScheduleTest, ABatteryThatRunsDownIsNoticedWithoutNews) {
  start();
  machine->powerSource = PowerSource::battery;
  machine->batteryPercent = 21;
  askManual(20);
  machine->batteryPercent = 20;
  wait(60);
  EXPECT_FALSE(power.isSleepDisabled);
}

TEST_F(DaemonScheduleTest, RequestsThatAreRefusedDoNotPutOffTheNextLook) {
  start();
  askManual(20);
  machine->powerSource = PowerSource::battery;
  machine->batteryPercent = 20;
  for (int refused = 0; refused < 3; ++refused) {
    EXPECT_TRUE(power.isSleepDisabled);
    wait(20);
    EXPECT_TRUE(askManual(721).error);
  }
  EXPECT_FALSE(power.isSleepDisabled);
}

TEST_F(DaemonScheduleTest, ALostRouteReleasesTheLockAfterTheGrace) {
  start();
  askManual(60);
  machine->defaultRouteAvailable = false;
  machineChanged();
  wait(299);
  EXPECT_TRUE(power.isSleepDisabled);
  wait(2);
  EXPECT_FALSE(power.isSleepDisabled);
  EXPECT_EQ(stored().lastStopReason, reason::networkUnavailable);
}

TEST_F(DaemonScheduleTest, SeriousHeatWithTheLidClosedReleasesTheLockAfterTwoMinutes) {
  start();
  askManual(60);
  wait(30);
  machine->thermalPressure = ThermalPressure::serious;
  machine->lidClosed = true;
  machineChanged();
  wait(119);
  EXPECT_TRUE(power.isSleepDisabled);
  wait(2);
  EXPECT_FALSE(power.isSleepDisabled);
  EXPECT_EQ(stored().lastStopReason, reason::thermalPressure);
}

TEST_F(DaemonScheduleTest, CriticalHeatIsNoticedWithoutNews) {
  start();
  askManual(60);
  machine->thermalPressure = ThermalPressure::critical;
  wait(60);
  EXPECT_FALSE(power.isSleepDisabled);
}

TEST_F(DaemonScheduleTest, WhileATimerRunsTheEndOfHeatIsNoticedWithoutNews) {
  start();
  askManual(60);
  machine->thermalPressure = ThermalPressure::critical;
  wait(120);
  EXPECT_FALSE(power.isSleepDisabled);
  machine->thermalPressure = ThermalPressure::fair;
  wait(60);
  EXPECT_TRUE(power.isSleepDisabled);
  machine->thermalPressure = ThermalPressure::critical;
  wait(60);
  askStop();
  EXPECT_FALSE(loop.timer) << "without a timer nobody looks";
}

TEST_F(DaemonScheduleTest, OnlyAnotherLevelOfHeatIsAChangeThatIsAnnounced) {
  start();
  askManual(60);
  machine->thermalPressure = ThermalPressure::serious;
  machine->hotZone = HotZone{.name = "acpitz", .celsius = 91, .limitCelsius = 90};
  wait(120);
  const std::size_t announced = loop.announcements;
  const NODOState before = stored();
  for (const int degrees : {92, 93, 91}) {
    machine->hotZone->celsius = degrees;
    wait(60);
  }
  EXPECT_EQ(loop.announcements, announced);
  EXPECT_EQ(stored(), before);
  machine->thermalPressure = ThermalPressure::nominal;
  wait(60);
  EXPECT_EQ(loop.announcements, announced + 1);
}

TEST_F(DaemonScheduleTest, AReleaseThatGoesOnFailingIsTriedEveryMinuteAndNotWithoutEnd) {
  start();
  askManual(1);
  power.behaviour = Behaviour::fails;
  wait(62);
  power.operations.clear();
  wait(600);
  EXPECT_TRUE(loop.isLockHeld);
  EXPECT_GE(power.operations.size(), 10U);
  EXPECT_LE(power.operations.size(), 11U);
  power.behaviour = Behaviour::works;
  wait(60);
  EXPECT_FALSE(power.isSleepDisabled);
  EXPECT_FALSE(loop.timer);
}

TEST_F(DaemonScheduleTest, AReleaseThatGoesOnFailingWithoutANetworkIsTriedEveryMinute) {
  for (const double grace : {0.0, 1.0}) {
    settings.releaseGrace = Seconds(grace);
    start();
    askManual(60);
    machine->defaultRouteAvailable = false;
    machineChanged();
    power.behaviour = Behaviour::fails;
    wait(310);
    power.operations.clear();
    wait(600);
    EXPECT_GE(power.operations.size(), 10U);
    EXPECT_LE(power.operations.size(), 11U);
    power.behaviour = Behaviour::works;
    wait(60);
    EXPECT_FALSE(power.isSleepDisabled);
    machine->defaultRouteAvailable = true;
    terminate();
  }
}

TEST_F(DaemonScheduleTest, WithoutAReleaseGraceNoPassFollowsAnotherWithoutEnd) {
  settings.releaseGrace = Seconds(0);
  start();
  askManual(60);
  machine->defaultRouteAvailable = false;
  pass(Seconds(0.4));
  machineChanged();
  wait(301);
  EXPECT_FALSE(power.isSleepDisabled);
  machine->defaultRouteAvailable = true;
  machineChanged();
  EXPECT_TRUE(power.isSleepDisabled);
  power.behaviour = Behaviour::fails;
  wait(7200);
  EXPECT_TRUE(power.isSleepDisabled);
}

// ---- ownership

TEST_F(DaemonScheduleTest, ALockThatDiedWithAnEarlierProcessIsTakenAgain) {
  putTimer(600, true);
  start();
  EXPECT_THAT(power.operations, ElementsAre(PowerOperationAction::disableSleep));
  EXPECT_TRUE(power.isSleepDisabled);
  EXPECT_TRUE(stored().ownsSleepDisable);
}

TEST_F(DaemonScheduleTest, ALockThatDiedWithAnEarlierProcessIsForgottenWhenNoTimerRuns) {
  putTimer(-5, true);
  start();
  EXPECT_THAT(power.operations, IsEmpty());
  EXPECT_FALSE(stored().ownsSleepDisable);
  EXPECT_EQ(stored().lastStopReason, reason::manualExpired);
}

TEST_F(DaemonScheduleTest, ForgettingDoesNotDependOnTheMachinesWord) {
  putTimer(600, true);
  lockIsReadable = false;
  start();
  EXPECT_TRUE(power.isSleepDisabled);
}

TEST_F(DaemonScheduleTest, ALockThatIsGoneIsTakenAgain) {
  start();
  askManual(20);
  power.isSleepDisabled = false;
  wait(60);
  EXPECT_TRUE(power.isSleepDisabled);
  EXPECT_TRUE(stored().ownsSleepDisable);
}

TEST_F(DaemonScheduleTest, AMachineWhoseLockWentByItselfSleepsAfterAStop) {
  start();
  closeLidOnBattery();
  askManual(20);
  power.isSleepDisabled = false;
  askStop();
  EXPECT_EQ(power.sleepRequests, 1);
}

TEST_F(DaemonScheduleTest, ALockWhoseStateVanishedIsReleased) {
  for (const bool dies : {true, false}) {
    lockDiesWithProcess = dies;
    start();
    askManual(20);
    std::filesystem::remove(store().stateURL());
    wait(60);
    EXPECT_FALSE(power.isSleepDisabled);
    EXPECT_FALSE(stored().ownsSleepDisable);
    EXPECT_THAT(auditReasons(), ElementsAre("release:not_armed"));
    EXPECT_FALSE(loop.timer);
    terminate();
  }
}

TEST_F(DaemonScheduleTest, AStopReleasesTheLockWhoseStateVanished) {
  start();
  askManual(20);
  put(NODOState::fresh(now));
  EXPECT_FALSE(askStop().status->state.ownsSleepDisable);
  EXPECT_FALSE(power.isSleepDisabled);
}

TEST_F(DaemonScheduleTest, ALockWhoseStateVanishedServesTheNextTimer) {
  start();
  askManual(20);
  std::filesystem::remove(store().stateURL());
  EXPECT_TRUE(askManual(20).status->state.ownsSleepDisable);
  EXPECT_TRUE(power.isSleepDisabled);
  wait(1202);
  EXPECT_FALSE(power.isSleepDisabled);
}

TEST_F(DaemonScheduleTest, ALockOfSomebodyElseIsNotTakenForOursWhenTheStateVanished) {
  lockDiesWithProcess = false;
  power.isSleepDisabled = true;
  start();
  machineChanged();
  EXPECT_TRUE(power.isSleepDisabled);
  EXPECT_THAT(power.operations, IsEmpty());
}

TEST_F(DaemonScheduleTest, ALockOfUnknownStateIsLeftAlone) {
  start();
  askManual(20);
  lockIsReadable = false;
  power.operations.clear();
  wait(300);
  EXPECT_THAT(power.operations, IsEmpty());
}

TEST_F(DaemonScheduleTest, ALockThatOutlivesProcessesStaysOwned) {
  lockDiesWithProcess = false;
  power.isSleepDisabled = true;
  putTimer(600, true);
  start();
  EXPECT_THAT(power.operations, IsEmpty());
  EXPECT_TRUE(stored().ownsSleepDisable);
  EXPECT_TRUE(loop.isLockHeld);
  wait(602);
  EXPECT_FALSE(power.isSleepDisabled);
}

TEST_F(DaemonScheduleTest, ALockThatSomebodySwitchedOffWhileNoDaemonRanIsTakenAgain) {
  lockDiesWithProcess = false;
  putTimer(600, true);
  start();
  EXPECT_TRUE(stored().ownsSleepDisable);
  EXPECT_TRUE(power.isSleepDisabled);
}

// ---- the end

TEST_F(DaemonScheduleTest, ASignalReleasesTheLockAndKeepsTheTimerForTheNextStart) {
  start();
  askManual(20);
  const auto end = stored().manualUntil;
  terminate();
  EXPECT_FALSE(power.isSleepDisabled);
  EXPECT_FALSE(stored().ownsSleepDisable);
  EXPECT_EQ(stored().manualUntil, end);
  EXPECT_THAT(auditReasons(), ElementsAre("enable:manual_timer", "release:daemon_stopping"));
  start();
  EXPECT_TRUE(power.isSleepDisabled);
}

TEST_F(DaemonScheduleTest, ASignalWithoutTheLockWritesNothing) {
  start();
  terminate();
  EXPECT_FALSE(std::filesystem::exists(store().stateURL()));
  EXPECT_THAT(power.operations, IsEmpty());
}

TEST_F(DaemonScheduleTest, ASignalReleasesTheLockOfAnUnreadableState) {
  start();
  askManual(20);
  breakState();
  terminate();
  EXPECT_FALSE(power.isSleepDisabled);
  EXPECT_EQ(folder.read("state/state.json"), "{");
}

TEST_F(DaemonScheduleTest, TheAuditsOfManyStopsAreBounded) {
  for (int life = 0; life < 15; ++life) {
    start();
    askManual(20);
    terminate();
  }
  EXPECT_EQ(stored().powerOperationHistory.size(), 20U);
}

TEST_F(DaemonScheduleTest, ALoopThatCannotGoOnReleasesTheLock) {
  start();
  askManual(20);
  loop.onRun = [] { throw std::runtime_error("the bus is gone"); };
  EXPECT_THROW(daemon->run(), std::runtime_error);
  EXPECT_FALSE(power.isSleepDisabled);
  EXPECT_FALSE(stored().ownsSleepDisable);
}

}  // namespace
}  // namespace nodo
