#include <NODOCore/base/Errors.h>
#include <testing/DiskFull.h>

#include <chrono>
#include <limits>
#include <system_error>

#include <tests/control/ControllerFixture.h>

namespace nodo {
namespace {

class ControllerCommandsTest : public ControllerFixture {};

TEST_F(ControllerCommandsTest, StatusOfAnUntouchedMachineWritesNothing) {
  const StatusReport report = status();

  EXPECT_EQ(report.generatedAt, now);
  EXPECT_EQ(report.decision.stopReason, "not_armed");
  EXPECT_FALSE(report.manualRemainingSeconds);
  EXPECT_FALSE(std::filesystem::exists(store().directory));
}

TEST_F(ControllerCommandsTest, StatusReportsTheAgentsThatRun) {
  machine->startAgent(4711);
  const StatusReport report = status();
  ASSERT_EQ(report.agents.size(), 1U);
  EXPECT_EQ(report.agents.front().pid, 4711);
  EXPECT_EQ(report.agents.front().kind, AgentKind::claudeCode);
}

TEST_F(ControllerCommandsTest, AStartedTimerIsStoredAndReported) {
  put(NODOState::fresh(now));
  const StatusReport report = start(20, requester("Codex", "project"));

  EXPECT_EQ(report.manualRemainingSeconds, 1200);
  EXPECT_TRUE(report.decision.shouldPreventSleep);
  EXPECT_EQ(report.state.lastActivationReason, "manual_timer");
  EXPECT_EQ(report.state.lastRequester->displayText(), "Codex - project");
  EXPECT_EQ(report.state.lastRequester->requestedAt, now);
  EXPECT_EQ(stored(), report.state);
}

TEST_F(ControllerCommandsTest, ATimerBelowOneMinuteIsRefusedBeforeAnythingIsRead) {
  folder.write("state/state.json", "not read");
  for (const std::int64_t minutes :
       {std::int64_t{0}, std::int64_t{-5}, std::numeric_limits<std::int64_t>::min()}) {
    try {
      start(minutes);
      ADD_FAILURE() << minutes;
    } catch (const NODOError& error) {
      EXPECT_EQ(error, NODOError::invalidDuration("minutes must be greater than 0"));
      EXPECT_STREQ(error.what(), "Invalid duration: minutes must be greater than 0");
    }
  }
  EXPECT_EQ(storedText(), "not read");
}

TEST_F(ControllerCommandsTest, ATimerAboveTheCapIsRefusedNotShortened) {
  EXPECT_EQ(start(longestTimer).manualRemainingSeconds, longestTimer * 60);
  const std::string before = storedText();
  for (const bool extendOnly : {false, true}) {
    try {
      controller().enableManual(longestTimer + 1, now, extendOnly, std::nullopt);
      ADD_FAILURE();
    } catch (const NODOError& error) {
      EXPECT_STREQ(error.what(), "Invalid duration: minutes must be <= 720");
    }
  }
  EXPECT_EQ(storedText(), before);
}

TEST_F(ControllerCommandsTest, WithoutACapATimerMayRunForAsLongAsMachinesDo) {
  put(NODOState::fresh(now));
  const auto unlimited = test::controllerFor(machine, store(), {});
  const auto report = unlimited.enableManual(SafetyPolicy::noLimit, now, false, std::nullopt);
  EXPECT_EQ(report.manualRemainingSeconds, SafetyPolicy::noLimit * 60);
  EXPECT_EQ(stored(), report.state);
}

TEST_F(ControllerCommandsTest, ARequestThatIsNoExtensionMayShortenARunningTimer) {
  start(60);
  EXPECT_EQ(start(5).manualRemainingSeconds, 300);
}

TEST_F(ControllerCommandsTest, ARequestWithoutRequesterForgetsTheLastOneAndKeepsTheLists) {
  NODOState expected = fullState();
  put(expected);

  const StatusReport report = start(20);

  expected.manualUntil = now + Seconds(1200);
  expected.lastActivationReason = "manual_timer";
  expected.lastRequester.reset();
  expected.lastStopReason.reset();
  expected.updatedAt = now;
  EXPECT_EQ(stored(), expected);
  EXPECT_EQ(report.state, expected);
}

TEST_F(ControllerCommandsTest, AnExtensionNeverShortensARunningTimer) {
  start(30);
  advance(1);
  const StatusReport report = extend(20, requester("Codex"));

  EXPECT_EQ(report.manualRemainingSeconds, 30 * 60 - 1);
  EXPECT_EQ(report.state.lastActivationReason, "manual_timer");
  EXPECT_EQ(report.state.lastRequester->name, "Codex");
  EXPECT_EQ(report.state.updatedAt, now);
  EXPECT_EQ(stored(), report.state);
}

TEST_F(ControllerCommandsTest, AnExtensionThatKeepsALaterEndOnlyRecordsItsRequester) {
  const NODOState before = fullState();
  put(before);
  EXPECT_EQ(extend(20).state, before);
  EXPECT_EQ(stored(), before);

  NODOState expected = before;
  expected.recordRequester(requester("Pi"), now, 6, 500);
  expected.updatedAt = now;
  EXPECT_EQ(extend(20, requester("Pi")).state, expected);
  EXPECT_EQ(stored(), expected);
}

TEST_F(ControllerCommandsTest, AnExtensionToTheSameEndRewritesItAsALease) {
  start(20);
  const StatusReport report = extend(20);
  EXPECT_EQ(report.manualRemainingSeconds, 1200);
  EXPECT_EQ(report.state.lastActivationReason, "manual_lease");
  EXPECT_EQ(stored().lastActivationReason, "manual_lease");
}

TEST_F(ControllerCommandsTest, AnExtensionAfterTheEndStartsAnew) {
  start(1);
  advance(3600);
  EXPECT_EQ(extend(20).manualRemainingSeconds, 1200);
}

TEST_F(ControllerCommandsTest, AnExtensionWithoutTimerStartsOne) {
  const StatusReport report = extend(20);
  EXPECT_EQ(report.manualRemainingSeconds, 1200);
  EXPECT_EQ(report.state.lastActivationReason, "manual_lease");
}

TEST_F(ControllerCommandsTest, AnExtensionThatChangesNothingWritesNothing) {
  start(30);
  const auto written = std::filesystem::last_write_time(store().stateURL());
  std::filesystem::last_write_time(store().stateURL(), written - std::chrono::hours(1));
  const std::string before = storedText();
  advance(1);

  const StatusReport report = extend(20);

  EXPECT_EQ(report.manualRemainingSeconds, 30 * 60 - 1);
  EXPECT_EQ(storedText(), before);
  EXPECT_EQ(std::filesystem::last_write_time(store().stateURL()), written - std::chrono::hours(1));
}

TEST_F(ControllerCommandsTest, ANewTimerForgetsWhyTheLastOneStopped) {
  stop();
  EXPECT_EQ(stored().lastStopReason, "user_stop");
  start(20);
  EXPECT_FALSE(stored().lastStopReason);
}

TEST_F(ControllerCommandsTest, AtMostSixRecentRequestersAndFiveHundredRequestsAreKept) {
  NODOState before = NODOState::fresh(now);
  for (int index = 0; index < 500; ++index) {
    before.recordRequester(requester("agent"), now, 6, 500);
  }
  put(before);
  for (int index = 0; index < 8; ++index) {
    advance(1);
    extend(20, requester("agent " + std::to_string(index)));
  }
  const NODOState state = stored();
  EXPECT_EQ(state.recentRequesters.size(), 6U);
  EXPECT_EQ(state.recentRequesters.front().name, "agent 7");
  EXPECT_EQ(state.triggerHistory.size(), 500U);
  EXPECT_EQ(state.triggerHistory.back().requestedAt, now);
}

TEST_F(ControllerCommandsTest, StoppingTwiceSucceedsBothTimes) {
  start(20);
  for (int time = 0; time < 2; ++time) {
    advance(1);
    const StatusReport report = stop();
    EXPECT_FALSE(report.state.manualUntil);
    EXPECT_EQ(report.state.lastStopReason, "user_stop");
    EXPECT_EQ(stored().updatedAt, now);
  }
}

TEST_F(ControllerCommandsTest, StoppingLeavesTheLockToTheNextPass) {
  start(20);
  reconcile();
  ASSERT_TRUE(power.isSleepDisabled);

  stop();

  EXPECT_TRUE(stored().ownsSleepDisable);
  EXPECT_TRUE(power.isSleepDisabled);
  reconcile();
  EXPECT_FALSE(stored().ownsSleepDisable);
  EXPECT_FALSE(power.isSleepDisabled);
}

TEST_F(ControllerCommandsTest, StoppingEndsTheTimerForgetsTheTrackersAndKeepsTheRest) {
  NODOState expected = fullState();
  expected.seriousHeatSince = now - Seconds(10);
  put(expected);

  const StatusReport report = stop();

  expected.manualUntil.reset();
  expected.noRouteUnavailableSince.reset();
  expected.seriousHeatSince.reset();
  expected.lidOpenedAt.reset();
  expected.lastLidClosed.reset();
  expected.lastStopReason = "user_stop";
  expected.updatedAt = now;
  EXPECT_EQ(stored(), expected);
  expected.lastLidClosed = false;  // as the report's own look at the machine saw it
  EXPECT_EQ(report.state, expected);
}

TEST_F(ControllerCommandsTest, RepairingTheStateForgetsTheLockTooAndKeepsTheRest) {
  NODOState expected = fullState();
  expected.seriousHeatSince = now - Seconds(10);
  put(expected);
  power.isSleepDisabled = true;

  const StatusReport report = controller().repairState(now);

  expected.manualUntil.reset();
  expected.ownsSleepDisable = false;
  expected.noRouteUnavailableSince.reset();
  expected.seriousHeatSince.reset();
  expected.lidOpenedAt.reset();
  expected.lastLidClosed.reset();
  expected.lastStopReason = "repair";
  expected.updatedAt = now;
  EXPECT_EQ(stored(), expected);
  expected.lastLidClosed = false;
  EXPECT_EQ(report.state, expected);
  EXPECT_TRUE(power.isSleepDisabled) << "the lock is not this command's concern";
}

TEST_F(ControllerCommandsTest, ACorruptStateFailsEveryCommandAndStaysAsItIs) {
  folder.write("state/state.json", "{\"ownsSleepDisable\": 1}");
  EXPECT_THROW(status(), DecodingError);
  EXPECT_THROW(start(20), DecodingError);
  EXPECT_THROW(extend(20), DecodingError);
  EXPECT_THROW(stop(), DecodingError);
  EXPECT_THROW(controller().repairState(now), DecodingError);
  EXPECT_THROW(reconcile(), DecodingError);
  EXPECT_THROW(repair(), DecodingError);
  EXPECT_EQ(storedText(), "{\"ownsSleepDisable\": 1}");
  EXPECT_TRUE(power.operations.empty());
}

TEST_F(ControllerCommandsTest, AFailedSaveFailsTheCommandAndKeepsTheOldState) {
  start(20);
  const std::string before = storedText();
  {
    const test::DiskFull full;
    EXPECT_THROW(start(60), std::system_error);
    EXPECT_THROW(stop(), std::system_error);
    EXPECT_THROW(controller().repairState(now), std::system_error);
  }
  EXPECT_EQ(storedText(), before);
}

TEST_F(ControllerCommandsTest, AMachineThatCannotBeReadFailsTheReport) {
  machine->listingFails = true;
  EXPECT_THROW(status(), NODOError);
  machine->listingFails = false;
  machine->snapshotFails = true;
  EXPECT_THROW(status(), std::system_error);
}

TEST_F(ControllerCommandsTest, AReportRightAfterTheLidOpenedKnowsItBeforeTheStateDoes) {
  machine->lidClosed = true;
  start(20);
  reconcile();
  machine->lidClosed = false;
  advance(1);

  const StatusReport report = status();

  EXPECT_EQ(report.state.lidOpenedAt, now);
  EXPECT_FALSE(stored().lidOpenedAt);
  EXPECT_EQ(report.decision.reasons, (std::vector<std::string>{"manual_timer", "lid_open_grace"}));
}

TEST_F(ControllerCommandsTest, AReportCountsDownAMissingRoute) {
  start(20);
  machine->defaultRouteAvailable = false;
  reconcile();
  advance(100);
  const StatusReport report = status();
  EXPECT_EQ(report.noRouteGraceRemainingSeconds, 200);
  EXPECT_TRUE(report.decision.shouldPreventSleep);
}

TEST_F(ControllerCommandsTest, AReportCountsDownSeriousHeatWithTheLidClosed) {
  start(20);
  heatUp(ThermalPressure::serious);
  machine->lidClosed = true;
  reconcile();
  advance(50.5);
  EXPECT_EQ(status().heatGraceRemainingSeconds, 70);
  EXPECT_TRUE(status().decision.shouldPreventSleep);
  machine->lidClosed = false;
  EXPECT_EQ(status().heatGraceRemainingSeconds, std::nullopt);
}

TEST_F(ControllerCommandsTest, HeatThatForbidsNothingIsNotCountedDown) {
  start(20);
  heatUp(ThermalPressure::serious);
  machine->lidClosed = true;
  NODOController careless = controller();
  careless.decisionEngine.policy.stopAtThermalPressure = false;
  EXPECT_EQ(careless.status(now).heatGraceRemainingSeconds, std::nullopt);
}

TEST_F(ControllerCommandsTest, AnExpiredTimerIsReportedAsSuchAndNotCleared) {
  start(1);
  advance(60);
  const StatusReport report = status();
  EXPECT_EQ(report.decision.stopReason, "manual_expired");
  EXPECT_EQ(report.manualRemainingSeconds, 0);
  EXPECT_TRUE(stored().manualUntil);
}

}  // namespace
}  // namespace nodo
