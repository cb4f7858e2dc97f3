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

TEST_F(NODOStateTrackingTest, ASnapshotIsTrackedForLidAndRouteAtOnce) {
  state.manualUntil = after(600);
  state.lastLidClosed = true;
  state.syncSnapshotTracking({.now = after(5), .defaultRouteAvailable = false, .lidClosed = false});
  EXPECT_EQ(state.lidOpenedAt, after(5));
  EXPECT_EQ(state.noRouteUnavailableSince, after(5));
}

}  // namespace
}  // namespace nodo
