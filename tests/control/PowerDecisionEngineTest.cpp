#include <NODOCore/base/Errors.h>
#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/control/PowerDecision.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace nodo {
namespace {

using Words = std::vector<std::string>;

const Date now = dateFromSeconds(1769847300);

PowerDecision awake(Words reasons) {
  return {.shouldPreventSleep = true,
          .reasons = std::move(reasons),
          .safetyBlocks = {},
          .stopReason = {}};
}

PowerDecision blocked(Words blocks) {
  const std::string first = blocks.front();
  return {.shouldPreventSleep = false,
          .reasons = {},
          .safetyBlocks = std::move(blocks),
          .stopReason = first};
}

PowerDecision stopped(const std::string& reason) {
  return {.shouldPreventSleep = false, .reasons = {}, .safetyBlocks = {}, .stopReason = reason};
}

class PowerDecisionEngineTest : public ::testing::Test {
 protected:
  PowerDecisionEngineTest() { snapshot.now = now; }

  PowerDecision decision() const { return engine.evaluate(state, {}, snapshot); }

  void leaveOnTimer(double seconds) { state.manualUntil = now + Seconds(seconds); }

  void runOnBattery(std::optional<std::int64_t> percent) {
    snapshot.powerSource = PowerSource::battery;
    snapshot.batteryPercent = percent;
  }

  void loseRoute(std::optional<double> secondsAgo) {
    snapshot.defaultRouteAvailable = false;
    state.noRouteUnavailableSince.reset();
    if (secondsAgo) {
      state.noRouteUnavailableSince = now - Seconds(*secondsAgo);
    }
  }

  // A machine that is so hot with its lid closed, and since when.
  void heatUp(ThermalPressure pressure, double secondsAgo) {
    snapshot.thermalPressure = pressure;
    snapshot.lidClosed = true;
    state.seriousHeatSince = now - Seconds(secondsAgo);
  }

  PowerDecisionEngine engine{{.minimumBatteryPercent = 20,
                              .maxManualDurationMinutes = 480,
                              .lidOpenGraceSeconds = 60,
                              .noRouteGraceSeconds = 300,
                              .stopAtThermalPressure = true,
                              .stopInLowPowerMode = true}};
  NODOState state;
  SystemSnapshot snapshot;
};

TEST_F(PowerDecisionEngineTest, ARunningTimerKeepsAwake) {
  leaveOnTimer(600);
  EXPECT_EQ(decision(), awake({"manual_timer"}));
  leaveOnTimer(1);
  EXPECT_EQ(decision(), awake({"manual_timer"}));
}

TEST_F(PowerDecisionEngineTest, WithoutATimerThereIsNothingToKeepAwakeFor) {
  EXPECT_EQ(decision(), stopped("not_armed"));
}

TEST_F(PowerDecisionEngineTest, ATimerThatEndsNowOrEndedHasExpired) {
  for (const double left : {0.0, -0.001, -86400.0}) {
    leaveOnTimer(left);
    EXPECT_EQ(decision(), stopped("manual_expired")) << left;
  }
}

TEST_F(PowerDecisionEngineTest, ATimerInItsLastSecondIsNoLongerArmed) {
  for (const double left : {0.001, 0.5, 0.999}) {
    leaveOnTimer(left);
    EXPECT_EQ(decision(), stopped("not_armed")) << left;
  }
}

TEST_F(PowerDecisionEngineTest, AChargeAtTheMinimumBlocksAndAbovePasses) {
  leaveOnTimer(600);
  for (const std::int64_t percent : {20, 19, 0, -1}) {
    runOnBattery(percent);
    EXPECT_EQ(decision(), blocked({"battery_below_threshold"})) << percent;
  }
  runOnBattery(21);
  EXPECT_EQ(decision(), awake({"manual_timer"}));
}

TEST_F(PowerDecisionEngineTest, ALowChargeBlocksWithoutATimerToo) {
  runOnBattery(5);
  EXPECT_EQ(decision(), blocked({"battery_below_threshold"}));
}

TEST_F(PowerDecisionEngineTest, OnMainsOrAnUnknownSourceNoChargeBlocks) {
  leaveOnTimer(600);
  for (const PowerSource source : {PowerSource::ac, PowerSource::unknown}) {
    runOnBattery(5);
    snapshot.powerSource = source;
    EXPECT_EQ(decision(), awake({"manual_timer"}));
  }
}

TEST_F(PowerDecisionEngineTest, AnUnknownChargeDoesNotBlock) {
  leaveOnTimer(600);
  runOnBattery(std::nullopt);
  EXPECT_EQ(decision(), awake({"manual_timer"}));
}

TEST_F(PowerDecisionEngineTest, AMinimumOfAHundredBlocksEveryCharge) {
  leaveOnTimer(600);
  engine.policy.minimumBatteryPercent = 100;
  runOnBattery(100);
  EXPECT_EQ(decision(), blocked({"battery_below_threshold"}));
  engine.policy.minimumBatteryPercent = -1;
  runOnBattery(0);
  EXPECT_EQ(decision(), awake({"manual_timer"}));
}

TEST_F(PowerDecisionEngineTest, ALimitThatIsNotGivenForbidsNothing) {
  engine.policy = {};
  leaveOnTimer(600);
  runOnBattery(0);
  loseRoute(86400 * 365);
  state.lidOpenedAt = now;
  heatUp(ThermalPressure::critical, 86400);
  snapshot.lowPowerMode = true;
  EXPECT_EQ(decision(), awake({"manual_timer"}));
}

TEST_F(PowerDecisionEngineTest, AnOutageBlocksFromTheEndOfItsGrace) {
  leaveOnTimer(600);
  for (const double secondsAgo : {300.0, 300.001, 100000.0}) {
    loseRoute(secondsAgo);
    EXPECT_EQ(decision(), blocked({"network_unavailable"})) << secondsAgo;
  }
  for (const double secondsAgo : {299.0, 299.999, 0.0, -5.0}) {
    loseRoute(secondsAgo);
    EXPECT_EQ(decision(), awake({"manual_timer"})) << secondsAgo;
  }
}

TEST_F(PowerDecisionEngineTest, AnOutageWithoutATimerBlocksNothing) {
  loseRoute(100000);
  EXPECT_EQ(decision(), stopped("not_armed"));
  leaveOnTimer(0.5);
  EXPECT_EQ(decision(), stopped("not_armed"));
  leaveOnTimer(-1);
  EXPECT_EQ(decision(), stopped("manual_expired"));
  leaveOnTimer(1);
  EXPECT_EQ(decision(), blocked({"network_unavailable"}));
}

TEST_F(PowerDecisionEngineTest, AnOutageThatWasNotNotedBlocksNothing) {
  leaveOnTimer(600);
  loseRoute(std::nullopt);
  EXPECT_EQ(decision(), awake({"manual_timer"}));
}

TEST_F(PowerDecisionEngineTest, ARouteThatIsUnknownOrThereNeverBlocks) {
  leaveOnTimer(600);
  loseRoute(100000);
  for (const std::optional<bool> available : {std::optional<bool>(), std::optional(true)}) {
    snapshot.defaultRouteAvailable = available;
    EXPECT_EQ(decision(), awake({"manual_timer"}));
  }
}

TEST_F(PowerDecisionEngineTest, ANegativeNoRouteGraceBlocksAtOnce) {
  leaveOnTimer(600);
  loseRoute(0);
  EXPECT_EQ(decision(), awake({"manual_timer"}));
  engine.policy.noRouteGraceSeconds = 0;
  EXPECT_EQ(decision(), blocked({"network_unavailable"}));
  engine.policy.noRouteGraceSeconds = -1;
  EXPECT_EQ(decision(), blocked({"network_unavailable"}));
  engine.policy.noRouteGraceSeconds = std::numeric_limits<std::int64_t>::min();
  EXPECT_EQ(decision(), blocked({"network_unavailable"}));
}

TEST_F(PowerDecisionEngineTest, CriticalHeatBlocksAtOnceWhateverTheLidAndTheTimer) {
  snapshot.thermalPressure = ThermalPressure::critical;
  for (const std::optional<bool> closed : {std::optional<bool>(), {false}, {true}}) {
    snapshot.lidClosed = closed;
    state.manualUntil.reset();
    EXPECT_EQ(decision(), blocked({"thermal_pressure"}));
    leaveOnTimer(600);
    EXPECT_EQ(decision(), blocked({"thermal_pressure"}));
  }
}

TEST_F(PowerDecisionEngineTest, SeriousHeatWithTheLidClosedBlocksAfterTwoMinutes) {
  leaveOnTimer(600);
  for (const double secondsAgo : {120.0, 120.5, 100000.0}) {
    heatUp(ThermalPressure::serious, secondsAgo);
    EXPECT_EQ(decision(), blocked({"thermal_pressure"})) << secondsAgo;
  }
  for (const double secondsAgo : {119.9, 0.0, -5.0}) {
    heatUp(ThermalPressure::serious, secondsAgo);
    EXPECT_EQ(decision(), awake({"manual_timer"})) << secondsAgo;
  }
}

TEST_F(PowerDecisionEngineTest, SeriousHeatBlocksNothingWithTheLidOpenOrUnknownOrWithoutATimer) {
  leaveOnTimer(600);
  heatUp(ThermalPressure::serious, 1000);
  for (const std::optional<bool> closed : {std::optional<bool>(), {false}}) {
    snapshot.lidClosed = closed;
    EXPECT_EQ(decision(), awake({"manual_timer"}));
  }
  heatUp(ThermalPressure::serious, 1000);
  leaveOnTimer(0.5);
  EXPECT_EQ(decision(), stopped("not_armed"));
}

TEST_F(PowerDecisionEngineTest, LessOrUnknownHeatNeverBlocks) {
  leaveOnTimer(600);
  for (const std::optional<ThermalPressure> pressure :
       {std::optional<ThermalPressure>(), {ThermalPressure::nominal}, {ThermalPressure::fair}}) {
    heatUp(ThermalPressure::serious, 1000);
    snapshot.thermalPressure = pressure;
    EXPECT_EQ(decision(), awake({"manual_timer"}));
  }
}

TEST_F(PowerDecisionEngineTest, LowPowerModeBlocksOnBatteryAlone) {
  leaveOnTimer(600);
  runOnBattery(80);
  snapshot.lowPowerMode = true;
  EXPECT_EQ(decision(), blocked({"low_power_mode"}));
  for (const PowerSource source : {PowerSource::ac, PowerSource::unknown}) {
    snapshot.powerSource = source;
    EXPECT_EQ(decision(), awake({"manual_timer"}));
  }
  runOnBattery(80);
  for (const std::optional<bool> mode : {std::optional<bool>(), {false}}) {
    snapshot.lowPowerMode = mode;
    EXPECT_EQ(decision(), awake({"manual_timer"}));
  }
}

TEST_F(PowerDecisionEngineTest, EachOfTheTwoHasASwitchOfItsOwn) {
  leaveOnTimer(600);
  runOnBattery(80);
  snapshot.lowPowerMode = true;
  snapshot.thermalPressure = ThermalPressure::critical;
  engine.policy.stopInLowPowerMode = false;
  EXPECT_EQ(decision(), blocked({"thermal_pressure"}));
  engine.policy.stopInLowPowerMode = true;
  engine.policy.stopAtThermalPressure = false;
  EXPECT_EQ(decision(), blocked({"low_power_mode"}));
}

TEST_F(PowerDecisionEngineTest, HeatAndLowPowerModeComeAfterBatteryAndNetwork) {
  leaveOnTimer(600);
  runOnBattery(10);
  loseRoute(301);
  snapshot.thermalPressure = ThermalPressure::critical;
  snapshot.lowPowerMode = true;
  EXPECT_EQ(decision(), blocked({"battery_below_threshold", "network_unavailable",
                                 "thermal_pressure", "low_power_mode"}));
}

TEST_F(PowerDecisionEngineTest, OfTwoBlocksTheBatteryComesFirst) {
  leaveOnTimer(600);
  state.lidOpenedAt = now;
  runOnBattery(10);
  loseRoute(301);
  EXPECT_EQ(decision(), blocked({"battery_below_threshold", "network_unavailable"}));
}

TEST_F(PowerDecisionEngineTest, AnOpenedLidIsAReasonBesideTheTimer) {
  leaveOnTimer(600);
  for (const double openedAgo : {10.0, 59.0, 0.0}) {
    state.lidOpenedAt = now - Seconds(openedAgo);
    EXPECT_EQ(decision(), awake({"manual_timer", "lid_open_grace"})) << openedAgo;
  }
  for (const double openedAgo : {59.5, 60.0, 61.0}) {
    state.lidOpenedAt = now - Seconds(openedAgo);
    EXPECT_EQ(decision(), awake({"manual_timer"})) << openedAgo;
  }
}

TEST_F(PowerDecisionEngineTest, AnOpenedLidAloneKeepsNothingAwake) {
  state.lidOpenedAt = now;
  EXPECT_EQ(decision(), stopped("not_armed"));
  leaveOnTimer(0);
  EXPECT_EQ(decision(), stopped("manual_expired"));
}

TEST_F(PowerDecisionEngineTest, AgentsTakeNoPart) {
  const std::vector<AgentProcess> agents(
      50, {.pid = 1, .ppid = 1, .executable = "pi", .command = "pi", .kind = AgentKind::pi});
  for (const double left : {-1.0, 0.5, 600.0}) {
    leaveOnTimer(left);
    EXPECT_EQ(engine.evaluate(state, agents, snapshot), decision());
  }
  state.manualUntil.reset();
  EXPECT_EQ(engine.evaluate(state, agents, snapshot), stopped("not_armed"));
}

TEST_F(PowerDecisionEngineTest, OwnershipAndHistoryTakeNoPart) {
  state.ownsSleepDisable = true;
  state.lastStopReason = "user_stop";
  state.lastActivationReason = "manual_timer";
  EXPECT_EQ(decision(), stopped("not_armed"));
}

TEST(PowerDecisionTest, ADecisionToKeepAwakeHasNoStopReasonInItsJSON) {
  const std::string text =
      R"({"shouldPreventSleep":true,"reasons":["manual_timer"],"safetyBlocks":[]})";
  EXPECT_EQ(encodeJSON(awake({"manual_timer"}), JSONLayout::compact), text);
  EXPECT_EQ(decodeJSON<PowerDecision>(text), awake({"manual_timer"}));
}

TEST(PowerDecisionTest, ItsJSONHasItsKeysInTheirOrder) {
  const std::string text = R"({"shouldPreventSleep":false,"reasons":[],)"
                           R"("safetyBlocks":["a","b"],"stopReason":"a"})";
  EXPECT_EQ(encodeJSON(blocked({"a", "b"}), JSONLayout::compact), text);
  EXPECT_EQ(decodeJSON<PowerDecision>(text), blocked({"a", "b"}));
}

TEST(PowerDecisionTest, AllKeysButTheStopReasonAreRequired) {
  for (const char* text :
       {R"({"reasons":[],"safetyBlocks":[]})", R"({"shouldPreventSleep":true,"safetyBlocks":[]})",
        R"({"shouldPreventSleep":true,"reasons":[]})",
        R"({"shouldPreventSleep":1,"reasons":[],"safetyBlocks":[]})",
        R"({"shouldPreventSleep":true,"reasons":[1],"safetyBlocks":[]})",
        R"({"shouldPreventSleep":true,"reasons":null,"safetyBlocks":[]})",
        R"({"shouldPreventSleep":true,"reasons":[],"safetyBlocks":[],"stopReason":1})"}) {
    EXPECT_THROW(decodeJSON<PowerDecision>(text), DecodingError) << text;
  }
}

}  // namespace
}  // namespace nodo
