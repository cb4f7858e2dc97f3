#include <NODOCore/base/Errors.h>
#include <testing/DiskFull.h>

#include <functional>
#include <memory>
#include <system_error>
#include <utility>

#include <tests/control/ControllerFixture.h>

namespace nodo {
namespace {

using test::FakePowerManager;
using Actions = std::vector<PowerOperationAction>;

class ReconcileTest : public ControllerFixture {
 protected:
  // A running timer whose lock is held.
  void hold(std::int64_t minutes = 20) {
    start(minutes);
    reconcile();
    power.operations.clear();
  }
};

TEST_F(ReconcileTest, CriticalHeatReleasesTheLockAndSendsAClosedLaptopOnBatteryToSleep) {
  closeLidOnBattery();
  hold();
  heatUp(ThermalPressure::critical);
  reconcile();
  EXPECT_EQ(power.operations,
            (Actions{PowerOperationAction::enableSleep, PowerOperationAction::sleepNow}));
  const auto& audits = stored().powerOperationHistory;
  EXPECT_EQ(audits[audits.size() - 2].reason, "release:thermal_pressure");
  EXPECT_EQ(stored().lastStopReason, "thermal_pressure");
}

TEST_F(ReconcileTest, SeriousHeatReleasesTheLockOnceItHasLastedWithTheLidClosed) {
  closeLidOnBattery();
  hold();
  heatUp(ThermalPressure::serious);
  reconcile();
  advance(119);
  EXPECT_TRUE(reconcile().operations.empty());
  advance(1);
  EXPECT_EQ(reconcile().status.decision.safetyBlocks,
            (std::vector<std::string>{"thermal_pressure"}));
  EXPECT_FALSE(power.isSleepDisabled);
  heatUp(ThermalPressure::nominal);
  reconcile();
  EXPECT_TRUE(power.isSleepDisabled);
  EXPECT_FALSE(stored().seriousHeatSince);
}

TEST_F(ReconcileTest, DegreesThatChangeWithinALevelAreNoChange) {
  hold();
  heatUp(ThermalPressure::serious);
  machine->hotZone = HotZone{.name = "acpitz", .celsius = 91, .limitCelsius = 90};
  const SystemSnapshot before = reconcile().status.snapshot;
  machine->hotZone->celsius = 93;
  const DaemonRunReport run = reconcile();
  EXPECT_FALSE(run.stateChanged);
  EXPECT_EQ(run.status.snapshot, before);
  EXPECT_EQ(run.status.snapshot.hotZone, machine->hotZone);
}

TEST_F(ReconcileTest, ARunningTimerTakesTheLock) {
  start(20);
  const DaemonRunReport run = reconcile();

  EXPECT_TRUE(power.isSleepDisabled);
  EXPECT_TRUE(run.stateChanged);
  EXPECT_EQ(run.generatedAt, now);
  ASSERT_TRUE(run.operation);
  EXPECT_EQ(run.operation->action, PowerOperationAction::disableSleep);
  EXPECT_EQ(run.operations, (std::vector{*run.operation}));
  EXPECT_TRUE(run.status.state.ownsSleepDisable);
  EXPECT_EQ(run.status.state.lastActivationReason, "manual_timer");
  EXPECT_FALSE(run.status.state.lastStopReason);
  EXPECT_EQ(run.status.state.lastPowerOperation->reason, "enable:manual_timer");
  EXPECT_EQ(run.status.manualRemainingSeconds, 1200);
  EXPECT_EQ(stored(), run.status.state);
}

TEST_F(ReconcileTest, TakingTheLockForgetsWhyTheLastTimerStopped) {
  stop();
  NODOState state = stored();
  state.manualUntil = now + Seconds(600);
  state.lastActivationReason = "manual_lease";
  put(state);

  power.behaviour = FakePowerManager::Behaviour::fails;
  reconcile();
  EXPECT_EQ(stored().lastStopReason, "user_stop") << "the lock was not taken";
  EXPECT_EQ(stored().lastActivationReason, "manual_lease");

  power.behaviour = FakePowerManager::Behaviour::works;
  reconcile();
  EXPECT_EQ(stored().lastStopReason, std::nullopt);
  EXPECT_EQ(stored().lastActivationReason, "manual_timer");
}

TEST_F(ReconcileTest, ThePassReportsTheAgentsThatItFound) {
  machine->startAgent(4711);
  const DaemonRunReport run = reconcile();
  ASSERT_EQ(run.status.agents.size(), 1U);
  EXPECT_EQ(run.status.agents.front().pid, 4711);
}

TEST_F(ReconcileTest, APassThatChangesTheStateDatesIt) {
  start(20);
  advance(5);
  reconcile();
  EXPECT_EQ(stored().updatedAt, now);
  advance(5);
  reconcile();
  EXPECT_EQ(stored().updatedAt, now - Seconds(5)) << "nothing has changed";
}

TEST_F(ReconcileTest, AHeldLockIsLeftAloneAndNothingIsWritten) {
  hold();
  const std::string before = storedText();
  advance(10);
  const DaemonRunReport run = reconcile(true);

  EXPECT_TRUE(power.operations.empty());
  EXPECT_FALSE(run.stateChanged);
  EXPECT_FALSE(run.operation);
  EXPECT_TRUE(run.operations.empty());
  EXPECT_EQ(storedText(), before);
}

TEST_F(ReconcileTest, AnUntouchedMachineIsLeftAloneAndNothingIsWritten) {
  const DaemonRunReport run = reconcile();
  EXPECT_FALSE(run.stateChanged);
  EXPECT_TRUE(power.operations.empty());
  EXPECT_FALSE(isStored());
}

TEST_F(ReconcileTest, ATimerThatEndsNowExpiresInThisPass) {
  hold(1);
  advance(60);
  const DaemonRunReport run = reconcile();

  EXPECT_FALSE(power.isSleepDisabled);
  EXPECT_EQ(run.operation->action, PowerOperationAction::enableSleep);
  EXPECT_FALSE(run.status.state.manualUntil);
  EXPECT_EQ(run.status.state.lastStopReason, "manual_expired");
  EXPECT_EQ(run.status.state.lastPowerOperation->reason, "release:manual_expired");
  EXPECT_EQ(run.status.decision.stopReason, "not_armed");
}

TEST_F(ReconcileTest, ATimerThatEndsASecondLaterDoesNotExpire) {
  hold(1);
  advance(59);
  const DaemonRunReport run = reconcile();
  EXPECT_TRUE(power.isSleepDisabled);
  EXPECT_TRUE(run.status.state.manualUntil);
}

TEST_F(ReconcileTest, InItsLastSecondATimerReleasesTheLockWithoutExpiring) {
  hold(1);
  advance(59.5);
  const DaemonRunReport run = reconcile();
  EXPECT_FALSE(power.isSleepDisabled);
  EXPECT_TRUE(run.status.state.manualUntil);
  EXPECT_EQ(run.status.state.lastStopReason, "not_armed");
  EXPECT_EQ(run.status.state.lastPowerOperation->reason, "release:not_armed");
}

TEST_F(ReconcileTest, AReleaseSaysWhyUnlessTheTimerRanOut) {
  for (const auto& [before, after] :
       {std::pair{"user_stop", "not_armed"}, std::pair{"repair", "not_armed"},
        std::pair{"manual_expired", "manual_expired"}}) {
    NODOState state = NODOState::fresh(now);
    state.ownsSleepDisable = true;
    state.lastStopReason = before;
    put(state);
    reconcile();
    EXPECT_EQ(stored().lastStopReason, after);
    EXPECT_EQ(stored().lastPowerOperation->reason, std::string("release:") + before);
  }
}

TEST_F(ReconcileTest, ALowBatteryReleasesTheLockAndKeepsTheTimer) {
  hold();
  machine->powerSource = PowerSource::battery;
  machine->batteryPercent = 20;
  const DaemonRunReport run = reconcile();

  EXPECT_FALSE(power.isSleepDisabled);
  EXPECT_TRUE(run.status.state.manualUntil);
  EXPECT_EQ(run.status.state.lastStopReason, "battery_below_threshold");
  EXPECT_EQ(run.status.state.lastPowerOperation->reason, "release:battery_below_threshold");

  machine->powerSource = PowerSource::ac;
  reconcile();
  EXPECT_TRUE(power.isSleepDisabled) << "the timer still runs when the charger is back";
}

TEST_F(ReconcileTest, ALostRouteReleasesTheLockAfterItsGrace) {
  hold();
  machine->defaultRouteAvailable = false;
  reconcile();
  EXPECT_EQ(stored().noRouteUnavailableSince, now);
  advance(299);
  reconcile();
  EXPECT_TRUE(power.isSleepDisabled);
  advance(1);
  const DaemonRunReport run = reconcile();
  EXPECT_FALSE(power.isSleepDisabled);
  EXPECT_EQ(run.status.state.lastStopReason, "network_unavailable");
  EXPECT_EQ(run.status.noRouteGraceRemainingSeconds, 0);
}

TEST_F(ReconcileTest, ARouteThatComesBackStartsTheGraceAnew) {
  hold();
  machine->defaultRouteAvailable = false;
  reconcile();
  advance(200);
  machine->defaultRouteAvailable = true;
  reconcile();
  EXPECT_FALSE(stored().noRouteUnavailableSince);
  machine->defaultRouteAvailable = false;
  reconcile();
  EXPECT_EQ(stored().noRouteUnavailableSince, now);
}

TEST_F(ReconcileTest, AReleaseWithTheLidClosedOnBatteryAsksForSleep) {
  closeLidOnBattery();
  hold(1);
  advance(60);
  const DaemonRunReport run = reconcile();

  EXPECT_EQ(power.operations,
            (Actions{PowerOperationAction::enableSleep, PowerOperationAction::sleepNow}));
  EXPECT_EQ(power.sleepRequests, 1);
  ASSERT_EQ(run.operations.size(), 2U);
  EXPECT_EQ(run.operation, run.operations.front());
  const NODOState& state = run.status.state;
  ASSERT_GE(state.powerOperationHistory.size(), 2U);
  EXPECT_EQ(state.powerOperationHistory.back().reason, "closed_lid_release");
  EXPECT_EQ(state.powerOperationHistory.end()[-2].reason, "release:manual_expired");
  EXPECT_EQ(state.lastStopReason, "manual_expired");
  EXPECT_EQ(stored(), state);
}

TEST_F(ReconcileTest, TheReleaseIsOnDiskBeforeSleepIsAskedFor) {
  closeLidOnBattery();
  hold(1);
  advance(60);
  std::optional<NODOState> atSleep;
  power.beforeOperation = [&](PowerOperationAction action) {
    if (action == PowerOperationAction::sleepNow) {
      atSleep = stored();
    }
  };
  reconcile();
  ASSERT_TRUE(atSleep);
  EXPECT_FALSE(atSleep->ownsSleepDisable);
  EXPECT_EQ(atSleep->lastPowerOperation->reason, "release:manual_expired");
}

TEST_F(ReconcileTest, AChangeMadeWhileTheMachineSleptIsNotOverwritten) {
  closeLidOnBattery();
  hold(1);
  advance(60);
  power.beforeOperation = [&](PowerOperationAction action) {
    if (action == PowerOperationAction::sleepNow) {
      controller().enableManual(5, now - Seconds(1), false, requester("Codex"));
    }
  };
  const DaemonRunReport run = reconcile();
  EXPECT_EQ(run.status.state.lastRequester->name, "Codex");
  EXPECT_EQ(stored().powerOperationHistory.back().reason, "closed_lid_release");
  EXPECT_EQ(stored().updatedAt, now);
}

TEST_F(ReconcileTest, NoSleepIsAskedForUnlessTheLidIsClosedOnBattery) {
  const struct {
    std::optional<bool> lid;
    PowerSource source;
  } cases[] = {{false, PowerSource::battery},
               {std::nullopt, PowerSource::battery},
               {true, PowerSource::ac},
               {true, PowerSource::unknown}};

  for (const auto& each : cases) {
    machine->lidClosed = each.lid;
    machine->powerSource = each.source;
    machine->batteryPercent = 80;
    hold(1);
    advance(60);
    const DaemonRunReport run = reconcile();
    EXPECT_EQ(power.operations, Actions{PowerOperationAction::enableSleep})
        << rawValue(each.source);
    EXPECT_EQ(run.operations.size(), 1U);
  }
  EXPECT_EQ(power.sleepRequests, 0);
}

TEST_F(ReconcileTest, AFailedReleaseWithTheLidClosedDoesNotAskForSleep) {
  closeLidOnBattery();
  hold(1);
  advance(60);
  power.behaviour = FakePowerManager::Behaviour::fails;
  reconcile();
  EXPECT_EQ(power.operations, Actions{PowerOperationAction::enableSleep});
}

TEST_F(ReconcileTest, AFailedReleaseIsAuditedAndTriedAgain) {
  hold(1);
  advance(60);
  power.behaviour = FakePowerManager::Behaviour::fails;
  const DaemonRunReport run = reconcile();
  EXPECT_EQ(run.operation->exitCode, 1);
  EXPECT_TRUE(stored().ownsSleepDisable);
  EXPECT_EQ(stored().lastPowerOperation->reason, "release:manual_expired");
  EXPECT_EQ(stored().lastPowerOperation->exitCode, 1);

  power.behaviour = FakePowerManager::Behaviour::works;
  reconcile();
  EXPECT_FALSE(stored().ownsSleepDisable);
  EXPECT_EQ(stored().lastStopReason, "manual_expired");
}

TEST_F(ReconcileTest, ALockThatIsOnWithoutBeingOwnedIsReleasedOnlyWithATraceOfUse) {
  power.isSleepDisabled = true;
  reconcile(true);
  EXPECT_TRUE(power.operations.empty()) << "nobody ever used nodo here";

  NODOState used = NODOState::fresh(now);
  used.lastActivationReason = "manual_timer";
  put(used);
  reconcile(std::nullopt);
  reconcile(false);
  EXPECT_TRUE(power.operations.empty()) << "nobody saw that the lock is on";

  const DaemonRunReport run = reconcile(true);
  EXPECT_EQ(power.operations, Actions{PowerOperationAction::enableSleep});
  EXPECT_EQ(run.status.state.lastPowerOperation->reason, "release:not_armed");
}

TEST_F(ReconcileTest, EachTraceOfUseSuffices) {
  const ActivationRequester codex = requester("Codex");
  const std::vector<void (*)(NODOState&, const ActivationRequester&)> traces{
      [](NODOState& state, const ActivationRequester&) { state.manualUntil = Date(); },
      [](NODOState& state, const ActivationRequester&) { state.lastActivationReason = "x"; },
      [](NODOState& state, const ActivationRequester& who) { state.lastRequester = who; },
      [](NODOState& state, const ActivationRequester& who) { state.recentRequesters = {who}; },
      [](NODOState& state, const ActivationRequester& who) { state.triggerHistory = {who}; },
      [](NODOState& state, const ActivationRequester&) {
        state.triggerActivityBuckets = {{.startedAt = Date(), .count = 1}};
      }};
  for (std::size_t index = 0; index < traces.size(); ++index) {
    NODOState state = NODOState::fresh(now);
    // A tracked lid alone is no trace; a timer that has run out is cleared, so it needs one to run.
    state.lastLidClosed = false;
    traces[index](state, codex);
    if (state.manualUntil) {
      state.manualUntil = now + Seconds(0.5);
    }
    put(state);
    power.operations.clear();
    now = dateFromSeconds(startOfTest - 0.5);
    reconcile(true);
    EXPECT_EQ(power.operations, Actions{PowerOperationAction::enableSleep}) << "trace " << index;
    now = dateFromSeconds(startOfTest);
  }
}

TEST_F(ReconcileTest, TheTwentyFirstAuditDropsTheOldest) {
  start(longestTimer);
  power.behaviour = FakePowerManager::Behaviour::fails;
  for (int time = 0; time < 21; ++time) {
    advance(1);
    reconcile();
  }
  const auto history = stored().powerOperationHistory;
  ASSERT_EQ(history.size(), 20U);
  EXPECT_EQ(history.front().occurredAt, dateFromSeconds(startOfTest + 2));
  EXPECT_EQ(history.back(), stored().lastPowerOperation);
}

TEST_F(ReconcileTest, BothReasonsAreKeptAndTheFirstOneIsAudited) {
  machine->lidClosed = true;
  start(20);
  power.behaviour = FakePowerManager::Behaviour::fails;
  reconcile();
  machine->lidClosed = false;
  power.behaviour = FakePowerManager::Behaviour::works;
  const DaemonRunReport run = reconcile();
  EXPECT_EQ(run.status.state.lastActivationReason, "manual_timer,lid_open_grace");
  EXPECT_EQ(run.status.state.lastPowerOperation->reason, "enable:manual_timer");
}

TEST_F(ReconcileTest, SensesThatFailEndThePassBeforeAnythingIsDone) {
  start(20);
  const std::string before = storedText();
  machine->listingFails = true;
  EXPECT_THROW(reconcile(), NODOError);
  machine->listingFails = false;
  machine->snapshotFails = true;
  EXPECT_THROW(reconcile(), std::system_error);
  EXPECT_TRUE(power.operations.empty());
  EXPECT_EQ(storedText(), before);
}

TEST_F(ReconcileTest, RepairReleasesALockThatIsOnWithoutBeingOwned) {
  power.isSleepDisabled = true;
  const DaemonRunReport run = repair(true);
  EXPECT_FALSE(power.isSleepDisabled);
  EXPECT_EQ(power.operations, Actions{PowerOperationAction::enableSleep});
  EXPECT_EQ(run.operations.size(), 1U);
  EXPECT_EQ(run.operation, run.operations.front());
  EXPECT_TRUE(run.stateChanged);
  EXPECT_EQ(run.status.state.lastStopReason, "repair");
}

TEST_F(ReconcileTest, RepairOfAHeldLockReleasesItAndEndsTheTimer) {
  hold();
  const DaemonRunReport run = repair();
  EXPECT_FALSE(power.isSleepDisabled);
  EXPECT_FALSE(stored().ownsSleepDisable);
  EXPECT_FALSE(stored().manualUntil);
  EXPECT_EQ(run.operation->action, PowerOperationAction::enableSleep);
}

TEST_F(ReconcileTest, RepairWithoutALockMakesNoPowerCall) {
  for (const std::optional<bool> live : {std::optional<bool>(), std::optional<bool>(false)}) {
    start(20);
    const DaemonRunReport run = repair(live);
    EXPECT_TRUE(power.operations.empty());
    EXPECT_FALSE(run.operation);
    EXPECT_TRUE(run.stateChanged);
  }
}

TEST_F(ReconcileTest, RepairForgetsALockThatWouldNotBeReleased) {
  hold();
  power.behaviour = FakePowerManager::Behaviour::fails;
  const DaemonRunReport run = repair();
  EXPECT_TRUE(power.isSleepDisabled);
  EXPECT_EQ(power.operations, Actions{PowerOperationAction::enableSleep});
  ASSERT_TRUE(run.operation);
  EXPECT_EQ(run.operation->exitCode, 1);
  EXPECT_EQ(run.operations, (std::vector{*run.operation}));
  EXPECT_FALSE(stored().ownsSleepDisable);
  EXPECT_EQ(stored().lastStopReason, "repair");
  EXPECT_EQ(stored().lastPowerOperation->reason, "enable:manual_timer");
}

TEST_F(ReconcileTest, RepairThatCannotReleaseTheLockChangesNothing) {
  hold();
  const std::string before = storedText();
  power.behaviour = FakePowerManager::Behaviour::cannotRun;
  EXPECT_THROW(repair(), std::system_error);
  EXPECT_EQ(storedText(), before);
}

}  // namespace
}  // namespace nodo
