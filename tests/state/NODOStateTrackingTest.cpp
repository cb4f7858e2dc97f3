#include <NODOCore/sensing/SystemSnapshot.h>
#include <NODOCore/state/NODOState.h>

#include <optional>

#include <gtest/gtest.h>

namespace nodo {
namespace {

const Date start = dateFromSeconds(1769847300);

Date after(double seconds) {
  return start + Seconds(seconds);
}

// A state that sees one snapshot after the other.
class NODOStateTrackingTest : public ::testing::Test {
 protected:
  void seeLid(double at, std::optional<bool> closed) {
    state.syncLidOpenGrace({.now = after(at), .lidClosed = closed});
  }

  void seeRoute(double at, std::optional<bool> available) {
    state.updateNoRouteTracking({.now = after(at), .defaultRouteAvailable = available});
  }

  void seeHeat(double at, std::optional<ThermalPressure> pressure, std::optional<bool> closed) {
    state.updateHeatTracking({.now = after(at), .lidClosed = closed, .thermalPressure = pressure});
  }

  NODOState state;
};

TEST_F(NODOStateTrackingTest, OnlyALidThatWasSeenClosedStartsAGrace) {
  seeLid(0, std::nullopt);
  EXPECT_EQ(state.lidOpenedAt, std::nullopt);
  seeLid(1, false);
  EXPECT_EQ(state.lidOpenedAt, std::nullopt);
  EXPECT_EQ(state.lastLidClosed, false);
  seeLid(2, true);
  EXPECT_EQ(state.lidOpenedAt, std::nullopt);
  EXPECT_EQ(state.lastLidClosed, true);
  seeLid(3, false);
  EXPECT_EQ(state.lidOpenedAt, after(3));
  EXPECT_EQ(state.lastLidClosed, false);
}

TEST_F(NODOStateTrackingTest, ALidThatStaysOpenKeepsItsMoment) {
  seeLid(0, true);
  seeLid(1, false);
  seeLid(2, false);
  EXPECT_EQ(state.lidOpenedAt, after(1));
}

TEST_F(NODOStateTrackingTest, AClosedLidEndsTheGrace) {
  seeLid(0, true);
  seeLid(1, false);
  seeLid(2, true);
  EXPECT_EQ(state.lidOpenedAt, std::nullopt);
  seeLid(3, false);
  EXPECT_EQ(state.lidOpenedAt, after(3));
}

TEST_F(NODOStateTrackingTest, AnUnknownLidKeepsTheMomentButForgetsTheState) {
  seeLid(0, true);
  seeLid(1, false);
  seeLid(2, std::nullopt);
  EXPECT_EQ(state.lidOpenedAt, after(1));
  EXPECT_EQ(state.lastLidClosed, std::nullopt);
  seeLid(3, false);
  EXPECT_EQ(state.lidOpenedAt, after(1));
}

TEST_F(NODOStateTrackingTest, ALidThatOpensOutOfAnUnknownStateStartsNoGrace) {
  seeLid(0, true);
  seeLid(1, std::nullopt);
  seeLid(2, false);
  EXPECT_EQ(state.lidOpenedAt, std::nullopt);
  EXPECT_EQ(state.lastLidClosed, false);
}

TEST_F(NODOStateTrackingTest, TheFirstMomentOfAnOutageIsKept) {
  state.manualUntil = after(600);
  seeRoute(1, false);
  seeRoute(2, false);
  EXPECT_EQ(state.noRouteUnavailableSince, after(1));
}

TEST_F(NODOStateTrackingTest, ARouteThatIsBackOrUnknownEndsTheOutage) {
  state.manualUntil = after(600);
  for (const std::optional<bool> available : {std::optional(true), std::optional<bool>()}) {
    seeRoute(1, false);
    EXPECT_EQ(state.noRouteUnavailableSince, after(1));
    seeRoute(2, available);
    EXPECT_EQ(state.noRouteUnavailableSince, std::nullopt);
  }
  seeRoute(3, false);
  EXPECT_EQ(state.noRouteUnavailableSince, after(3));
}

TEST_F(NODOStateTrackingTest, AnOutageCountsOnlyWhileATimerRuns) {
  seeRoute(0, false);
  EXPECT_EQ(state.noRouteUnavailableSince, std::nullopt);
  state.manualUntil = after(10);
  seeRoute(9, false);
  EXPECT_EQ(state.noRouteUnavailableSince, after(9));
  seeRoute(9.5, false);  // less than a whole second is left
  EXPECT_EQ(state.noRouteUnavailableSince, std::nullopt);
  state.noRouteUnavailableSince = after(1);
  seeRoute(11, false);
  EXPECT_EQ(state.noRouteUnavailableSince, std::nullopt);
}

TEST_F(NODOStateTrackingTest, TheFirstMomentOfHeatWithTheLidClosedIsKept) {
  state.manualUntil = after(600);
  seeHeat(1, ThermalPressure::serious, true);
  seeHeat(2, ThermalPressure::critical, true);
  seeHeat(3, ThermalPressure::serious, true);
  EXPECT_EQ(state.seriousHeatSince, after(1));
}

TEST_F(NODOStateTrackingTest, HeatEndsWithItsLevelTheLidAndTheTimer) {
  const struct {
    double at;
    std::optional<ThermalPressure> pressure;
    std::optional<bool> closed;
  } ends[] = {{2, ThermalPressure::fair, true},
              {2, ThermalPressure::nominal, true},
              {2, std::nullopt, true},
              {2, ThermalPressure::serious, false},
              {2, ThermalPressure::serious, {}},
              {2, ThermalPressure::critical, false},
              {99.5, ThermalPressure::serious, true}};

  for (const auto& [at, pressure, closed] : ends) {
    state.manualUntil = after(100);
    seeHeat(1, ThermalPressure::serious, true);
    EXPECT_EQ(state.seriousHeatSince, after(1));
    seeHeat(at, pressure, closed);
    EXPECT_EQ(state.seriousHeatSince, std::nullopt);
  }
}

TEST_F(NODOStateTrackingTest, ASnapshotIsTrackedForLidRouteAndHeatAtOnce) {
  state.manualUntil = after(600);
  state.lastLidClosed = true;
  state.syncSnapshotTracking({.now = after(5), .defaultRouteAvailable = false, .lidClosed = false});
  EXPECT_EQ(state.lidOpenedAt, after(5));
  EXPECT_EQ(state.noRouteUnavailableSince, after(5));
  state.syncSnapshotTracking(
      {.now = after(6), .lidClosed = true, .thermalPressure = ThermalPressure::serious});
  EXPECT_EQ(state.seriousHeatSince, after(6));
}

}  // namespace
}  // namespace nodo
