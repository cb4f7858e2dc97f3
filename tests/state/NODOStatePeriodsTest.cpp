#include <NODOCore/sensing/SystemSnapshot.h>
#include <NODOCore/state/NODOState.h>
#include <testing/JSONRows.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>

#include <gtest/gtest.h>

namespace nodo {
namespace {

using test::dateOf;
using test::memberOf;
using test::numberOf;
using test::optionalNumberOf;
using test::optionalOf;
using test::testRows;
using test::valueOf;

const Date now = dateFromSeconds(1769847300);

NODOState stateWithManualLeft(double seconds) {
  NODOState state;
  state.manualUntil = now + Seconds(seconds);
  return state;
}

std::optional<Date> shifted(Date from, std::optional<double> seconds) {
  return seconds ? std::optional(from + Seconds(*seconds)) : std::nullopt;
}

void expectManualRow(const JSONValue& input, const JSONValue& expected) {
  NODOState state;
  state.manualUntil = dateOf(input, "manualUntil");
  const Date at = dateOf(input, "at");
  EXPECT_EQ((*state.manualUntil - at).count(), numberOf(input, "difference"));
  EXPECT_EQ(state.manualRemainingSeconds(at),
            optionalOf<std::int64_t>(expected, "manualRemainingSeconds"));
  EXPECT_EQ(state.manualIsActive(at), valueOf<bool>(expected, "manualIsActive"));
}

void expectNoRouteRow(const JSONValue& input, const JSONValue& expected) {
  const Date at = dateOf(input, "now");
  NODOState state;
  state.manualUntil = shifted(at, optionalNumberOf(input, "manualUntilMinusNow"));
  const auto sinceAgo = optionalNumberOf(input, "nowMinusSince");
  state.noRouteUnavailableSince = shifted(at, sinceAgo ? std::optional(-*sinceAgo) : std::nullopt);
  EXPECT_EQ(state.noRouteGraceRemainingSeconds(at, valueOf<std::int64_t>(input, "graceSeconds")),
            optionalOf<std::int64_t>(expected, "noRouteGraceRemainingSeconds"));
}

void expectLidRow(const JSONValue& input, const JSONValue& expected) {
  const Date at = dateOf(input, "now");
  const auto openedAgo = optionalNumberOf(input, "nowMinusLidOpenedAt");
  NODOState state;
  state.lidOpenedAt = shifted(at, openedAgo ? std::optional(-*openedAgo) : std::nullopt);
  const auto grace = valueOf<std::int64_t>(input, "graceSeconds");
  EXPECT_EQ(state.lidOpenGraceRemainingSeconds(at, grace),
            optionalOf<std::int64_t>(expected, "lidOpenGraceRemainingSeconds"));
  EXPECT_EQ(state.isWithinLidOpenGrace(at, grace), valueOf<bool>(expected, "isWithinLidOpenGrace"));
}

TEST(NODOStatePeriodsTest, WhatIsLeftIsCountedInWholeSeconds) {
  for (const JSONValue& row : testRows("vectors/remaining_seconds.json")) {
    const auto kind = valueOf<std::string>(row, "case");
    const JSONValue& input = memberOf(row, "input");
    SCOPED_TRACE(kind + " " + jsonText(input, JSONLayout::compact));
    if (kind.starts_with("manual remaining")) {
      expectManualRow(input, memberOf(row, "expected"));
    } else if (kind == "no-route grace") {
      expectNoRouteRow(input, memberOf(row, "expected"));
    } else if (kind == "lid-open grace") {
      expectLidRow(input, memberOf(row, "expected"));
    } else {
      ADD_FAILURE() << "a row of an unknown kind";
    }
  }
}

TEST(NODOStatePeriodsTest, HalfASecondIsNothingLeftAndInactive) {
  const NODOState state = stateWithManualLeft(0.5);
  EXPECT_EQ(state.manualRemainingSeconds(now), 0);
  EXPECT_FALSE(state.manualIsActive(now));
}

TEST(NODOStatePeriodsTest, FractionsOfRemainingSecondsAreDropped) {
  EXPECT_EQ(stateWithManualLeft(90.9).manualRemainingSeconds(now), 90);
  EXPECT_TRUE(stateWithManualLeft(90.9).manualIsActive(now));
}

TEST(NODOStatePeriodsTest, WithoutATimerNothingIsLeftOfIt) {
  EXPECT_EQ(NODOState().manualRemainingSeconds(now), std::nullopt);
  EXPECT_FALSE(NODOState().manualIsActive(now));
}

TEST(NODOStatePeriodsTest, AnEndedTimerHasZeroLeft) {
  EXPECT_EQ(stateWithManualLeft(-1000000).manualRemainingSeconds(now), 0);
  EXPECT_EQ(stateWithManualLeft(-0.1).manualRemainingSeconds(now), 0);
}

TEST(NODOStatePeriodsTest, NoRouteGraceEndsWithTheTimer) {
  for (const double left : {-1.0, 0.0, 0.999}) {
    NODOState state = stateWithManualLeft(left);
    state.noRouteUnavailableSince = now - Seconds(5);
    EXPECT_EQ(state.noRouteGraceRemainingSeconds(now, 60), std::nullopt) << left;
  }
  NODOState state = stateWithManualLeft(1);
  state.noRouteUnavailableSince = now - Seconds(5);
  EXPECT_EQ(state.noRouteGraceRemainingSeconds(now, 60), 55);
}

TEST(NODOStatePeriodsTest, TheGraceForHeatIsThatOfAClosedHotMachineWithATimer) {
  const SystemSnapshot hot{
      .now = now, .lidClosed = true, .thermalPressure = ThermalPressure::serious};
  NODOState state = stateWithManualLeft(600);
  EXPECT_EQ(state.heatGraceRemainingSeconds(hot, 120), std::nullopt);
  state.seriousHeatSince = now - Seconds(50.5);
  EXPECT_EQ(state.heatGraceRemainingSeconds(hot, 120), 70);
  EXPECT_EQ(state.heatGraceRemainingSeconds(hot, 30), 0);
  SystemSnapshot open = hot;
  open.lidClosed = false;
  EXPECT_EQ(state.heatGraceRemainingSeconds(open, 120), std::nullopt);
  state.manualUntil = now;
  EXPECT_EQ(state.heatGraceRemainingSeconds(hot, 120), std::nullopt);
}

TEST(NODOStatePeriodsTest, AnOutageThatBeganInTheFutureLengthensTheGrace) {
  NODOState state = stateWithManualLeft(600);
  state.noRouteUnavailableSince = now + Seconds(4.5);
  EXPECT_EQ(state.noRouteGraceRemainingSeconds(now, 60), 65);
}

TEST(NODOStatePeriodsTest, NoGraceIsEverNegative) {
  NODOState state = stateWithManualLeft(600);
  state.noRouteUnavailableSince = now - Seconds(61);
  state.lidOpenedAt = now - Seconds(61);
  EXPECT_EQ(state.noRouteGraceRemainingSeconds(now, 60), 0);
  EXPECT_EQ(state.noRouteGraceRemainingSeconds(now, -5), 0);
  EXPECT_EQ(state.lidOpenGraceRemainingSeconds(now, 60), 0);
  EXPECT_EQ(state.lidOpenGraceRemainingSeconds(now, -5), 0);
}

TEST(NODOStatePeriodsTest, WithoutAnOpenedLidThereIsNoGrace) {
  EXPECT_EQ(NODOState().lidOpenGraceRemainingSeconds(now, 60), std::nullopt);
  EXPECT_FALSE(NODOState().isWithinLidOpenGrace(now, 60));
}

TEST(NODOStatePeriodsDeathTest, ATimeThatIsNoTimeStopsTheProcess) {
  NODOState state;
  state.manualUntil = dateFromSeconds(std::numeric_limits<double>::infinity());
  EXPECT_DEATH(state.manualRemainingSeconds(now), "programming fault");
  state.manualUntil = dateFromSeconds(std::nan(""));
  EXPECT_DEATH(state.manualIsActive(now), "programming fault");
}

}  // namespace
}  // namespace nodo
