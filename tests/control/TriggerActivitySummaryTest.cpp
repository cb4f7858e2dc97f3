#include <NODOCore/control/Reports.h>
#include <testing/JSONRows.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace nodo {
namespace {

using test::dateOf;
using test::memberOf;
using test::testRows;
using test::valueOf;

using Counts = std::vector<std::int64_t>;
using Requesters = std::vector<ActivationRequester>;
using Minutes = std::vector<TriggerActivityBucket>;

constexpr double hour = 3600;
const Date now = dateFromSeconds(1769847300);

double seconds(const JSONValue& value) {
  return std::stod(value.number()->digits);
}

Requesters requestersAt(const std::vector<Date>& dates) {
  Requesters requesters;
  for (const Date date : dates) {
    requesters.push_back({"a", std::nullopt, std::nullopt, date});
  }
  return requesters;
}

TriggerActivitySummary summaryOf(const Counts& counts) {
  TriggerActivitySummary summary(Requesters{}, now, 12, 1);
  summary.buckets = counts;
  std::uint64_t total = 0;
  for (const std::int64_t count : counts) {
    total += static_cast<std::uint64_t>(count);
  }
  summary.total = static_cast<std::int64_t>(total);
  return summary;
}

TriggerActivitySummary summaryOfRow(const JSONValue& input) {
  const Date at = dateOf(input, "now");
  const auto hours = valueOf<std::int64_t>(input, "hours");
  const auto slots = valueOf<std::int64_t>(input, "bucketCount");
  if (const JSONValue* requested = input.member("requestedAt")) {
    std::vector<Date> dates;
    for (const JSONValue& date : *requested->array()) {
      dates.push_back(dateFromSeconds(seconds(date)));
    }
    return {requestersAt(dates), at, hours, slots};
  }
  Minutes minutes;
  for (const JSONValue& pair : *memberOf(input, "buckets").array()) {
    minutes.push_back({.startedAt = dateFromSeconds(seconds(pair.array()->at(0))),
                       .count = static_cast<std::int64_t>(seconds(pair.array()->at(1)))});
  }
  return {minutes, at, hours, slots};
}

TEST(TriggerActivitySummaryTest, RequestsAreSpreadOverTheSlots) {
  int requesterRows = 0;
  int minuteRows = 0;
  for (const JSONValue& row : testRows("vectors/activity_summary.json")) {
    const JSONValue& input = memberOf(row, "input");
    const JSONValue& expected = memberOf(row, "expected");
    SCOPED_TRACE(valueOf<std::string>(row, "case") + " " + jsonText(input, JSONLayout::compact));
    if (input.array() != nullptr) {
      continue;  // a sparkline's counts
    }
    ++(input.member("requestedAt") != nullptr ? requesterRows : minuteRows);
    const TriggerActivitySummary summary = summaryOfRow(input);
    EXPECT_EQ(summary.total, valueOf<std::int64_t>(expected, "total"));
    EXPECT_EQ(summary.hours, valueOf<std::int64_t>(expected, "hours"));
    EXPECT_EQ(summary.buckets, valueOf<Counts>(expected, "buckets"));
    EXPECT_EQ(sparkline(summary.buckets), valueOf<std::string>(expected, "sparkline"));
    EXPECT_EQ(summary.menuLine(), valueOf<std::string>(expected, "menuLine"));
  }
  EXPECT_GT(requesterRows, 0);
  EXPECT_GT(minuteRows, 0);
}

TEST(TriggerActivitySummaryTest, CountsAreShownAsBlocks) {
  int rows = 0;
  for (const JSONValue& row : testRows("vectors/activity_summary.json")) {
    if (memberOf(row, "input").array() == nullptr) {
      continue;
    }
    ++rows;
    const auto counts = valueOf<Counts>(row, "input");
    const JSONValue& expected = memberOf(row, "expected");
    SCOPED_TRACE(jsonText(memberOf(row, "input"), JSONLayout::compact));
    EXPECT_EQ(sparkline(counts), valueOf<std::string>(expected, "sparkline"));
    EXPECT_EQ(summaryOf(counts).menuLine(), valueOf<std::string>(expected, "menuLine"));
  }
  EXPECT_GT(rows, 0);
}

TEST(TriggerActivitySummaryTest, HoursAndSlotsBelowOneAreTakenAsOne) {
  for (const std::int64_t few :
       {std::int64_t{0}, std::int64_t{-1}, std::numeric_limits<std::int64_t>::min()}) {
    const TriggerActivitySummary summary(
        requestersAt({now - Seconds(hour + 1), now - Seconds(hour), now}), now, few, few);
    EXPECT_EQ(summary.hours, 1);
    EXPECT_EQ(summary.buckets, Counts{2});
    EXPECT_EQ(TriggerActivitySummary(Minutes{}, now, few, few).buckets, Counts{0});
  }
}

TEST(TriggerActivitySummaryTest, BothEndsOfTheSpanCount) {
  const TriggerActivitySummary summary(
      requestersAt(
          {now - Seconds(2 * hour + 0.1), now - Seconds(2 * hour), now, now + Seconds(0.1)}),
      now, 2, 4);
  EXPECT_EQ(summary.total, 2);
  EXPECT_EQ(summary.buckets, (Counts{1, 0, 0, 1}));
}

TEST(TriggerActivitySummaryTest, ARequestOnASlotsBorderBelongsToTheLaterSlot) {
  const TriggerActivitySummary summary(requestersAt({now - Seconds(hour), now - Seconds(hour + 1)}),
                                       now, 2, 2);
  EXPECT_EQ(summary.buckets, (Counts{1, 1}));
}

TEST(TriggerActivitySummaryTest, AMinuteCountsWhenItOverlapsTheSpan) {
  const Date start = now - Seconds(2 * hour);
  const TriggerActivitySummary summary(Minutes{{start - Seconds(60), 100},
                                               {start - Seconds(59), 1},
                                               {now - Seconds(hour), 10},
                                               {now, 1000},
                                               {now + Seconds(1), 10000}},
                                       now, 2, 2);
  EXPECT_EQ(summary.buckets, (Counts{1, 1010}));
  EXPECT_EQ(summary.total, 1011);
}

TEST(TriggerActivitySummaryTest, CountsThatDoNotFitStayAtTheLargest) {
  constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
  const TriggerActivitySummary summary(Minutes{{now, largest}, {now, 1}}, now, 1, 1);
  EXPECT_EQ(summary.total, largest);
  EXPECT_EQ(summary.buckets, Counts{largest});
  EXPECT_EQ(sparkline(summary.buckets), "█");
}

TEST(TriggerActivitySummaryTest, ASlotWithoutRequestsIsADot) {
  EXPECT_EQ(sparkline({0, 0, 0}), "···");
  EXPECT_EQ(sparkline({0, -5, 1}), "··█");
  EXPECT_EQ(sparkline({-5, -1}), "··");
  EXPECT_EQ(sparkline({}), "");
}

TEST(TriggerActivitySummaryTest, HeightsAreRelativeToTheBusiestSlot) {
  EXPECT_EQ(sparkline({1, 4}), "▂█");
  EXPECT_EQ(sparkline({1, 2, 3, 4, 5, 6, 7, 8}), "▁▂▃▄▅▆▇█");
  EXPECT_EQ(sparkline({1, 1000}), "▁█");
}

TEST(TriggerActivitySummaryTest, TheMenuLineNamesSpanAndTotal) {
  EXPECT_EQ(summaryOf({0, 1, 4}).menuLine(), "Triggers 12h  ·▂█  5");
}

}  // namespace
}  // namespace nodo
