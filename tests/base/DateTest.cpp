#include <NODOCore/base/Date.h>
#include <NODOCore/base/JSONCoding.h>
#include <testing/TestData.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace nodo {
namespace {

using test::testData;

double seconds(const JSONValue& value) {
  return std::stod(value.number()->digits);
}

TEST(DateTest, IsWrittenWithTheFloorOfItsSeconds) {
  const JSONValue rows = testData("vectors/iso8601_write.json");
  ASSERT_FALSE(rows.array()->empty());
  // The reference has the Julian calendar before this, 1582-10-15; nodo has one for all times.
  const Date firstGregorianDay = dateFromSeconds(-12219292800);
  for (const JSONValue& row : *rows.array()) {
    const Date date = dateFromSeconds(seconds(*row.member("seconds")));
    if (date < firstGregorianDay) {
      continue;
    }
    EXPECT_EQ(iso8601Text(date), *row.member("json")->text())
        << "for " << row.member("seconds")->number()->digits;
  }
}

TEST(DateTest, IsReadInUTCAndWithNumericOffsets) {
  const struct {
    const char* text;
    double seconds;
  } cases[] = {
      {"1970-01-01T00:00:00Z", 0},
      {"2026-01-31T08:15:00Z", 1769847300},
      {"2026-01-31T09:15:00+01:00", 1769847300},
      {"2026-01-31T09:15:00+0100", 1769847300},
      {"2026-01-30T22:45:00-09:30", 1769847300},
      {"1969-12-31T23:59:59Z", -1},
      {"2024-02-29T00:00:00Z", 1709164800},
      {"1582-10-15T00:00:00Z", -12219292800},
      {"1582-10-14T23:59:59Z", -12219292801},
      {"0001-01-01T00:00:00Z", -62135596800},
      {"0000-12-31T23:59:59Z", -62135596801},
      {"-0001-12-31T00:00:00Z", -62167305600},
      {"9999-12-31T23:59:59Z", 253402300799},
      {"33658-09-27T01:46:40Z", 1000000000000},
      {"999999-12-31T23:59:59Z", 31494784780799},
  };

  for (const auto& each : cases) {
    const auto date = dateFromISO8601(each.text);
    ASSERT_TRUE(date) << each.text;
    EXPECT_EQ(secondsSince1970(*date), each.seconds) << each.text;
  }
}

TEST(DateTest, AnythingElseIsNoDate) {
  for (const char* text : {"",
                           "2026-01-31",
                           "2026-01-31T08:15:00",
                           "2026-01-31 08:15:00Z",
                           "2026-01-31T08:15:00.5Z",
                           "2026-01-31T08:15Z",
                           "2026-02-29T00:00:00Z",
                           "2026-13-01T00:00:00Z",
                           "2026-00-10T00:00:00Z",
                           "2026-01-00T00:00:00Z",
                           "2026-01-31T24:00:00Z",
                           "2026-01-31T08:60:00Z",
                           "2026-01-31T08:15:60Z",
                           "2026-01-31T08:15:00z",
                           "2026-01-31T08:15:00+24:00",
                           "2026-01-31T08:15:00+01:60",
                           "2026-01-31T08:15:00+1:00",
                           "2026-01-31T08:15:00+01",
                           "1500-02-29T00:00:00Z",
                           "2026-04-31T00:00:00Z",
                           "2026-01-32T00:00:00Z",
                           "999999-12-31T23:59:59-00:01",
                           "-999999-01-01T00:00:00+00:01",
                           "02026-01-31T08:15:00Z",
                           "-0000-01-31T08:15:00Z",
                           "99999999999-01-01T00:00:00Z",
                           "1900-02-29T00:00:00Z",
                           "2026-01-31T08:15:00ZZ",
                           " 2026-01-31T08:15:00Z",
                           "2026-1-31T08:15:00Z",
                           "+026-01-31T08:15:00Z",
                           "20260131T081500Z",
                           "1769847300"}) {
    EXPECT_FALSE(dateFromISO8601(text)) << '"' << text << '"';
  }
}

TEST(DateTest, EveryTextThatIsWrittenCanBeRead) {
  for (const double seconds :
       {0.0, -1.0, 1769847300.0, -12219292800.0, -12219292801.0, -62135596800.0, -62167392000.0,
        -62167392001.0, -70000000000.0, 253402300800.0, 1000000000000.0, 31494784780799.0}) {
    const auto read = dateFromISO8601(iso8601Text(dateFromSeconds(seconds)));
    ASSERT_TRUE(read) << iso8601Text(dateFromSeconds(seconds));
    EXPECT_EQ(secondsSince1970(*read), seconds);
  }
}

TEST(DateTest, EveryDayOfEightCenturiesFollowsTheOneBefore) {
  for (std::int64_t day = -200000; day < 100000; ++day) {
    const auto text = iso8601Text(dateFromSeconds(static_cast<double>(day) * 86400));
    const auto read = dateFromISO8601(text);
    ASSERT_TRUE(read) << text;
    ASSERT_EQ(secondsSince1970(*read), static_cast<double>(day) * 86400) << text;
  }
}

TEST(DateTest, WholeSecondsAreRoundedDown) {
  EXPECT_EQ(wholeSeconds(Seconds(90.9)), 90);
  EXPECT_EQ(wholeSeconds(Seconds(-0.1)), -1);
  EXPECT_EQ(wholeSeconds(Seconds(0)), 0);
  EXPECT_EQ(wholeSeconds(Seconds(-9223372036854775808.0)),
            std::numeric_limits<std::int64_t>::min());
}

TEST(DateDeathTest, ALengthThatIsNoNumberOfSecondsStopsTheProcess) {
  for (const double length : {std::nan(""), std::numeric_limits<double>::infinity(),
                              9223372036854775808.0, -9223372036854777856.0}) {
    EXPECT_DEATH(wholeSeconds(Seconds(length)), "programming fault: a length of time") << length;
  }
}

TEST(MinutesFromTextTest, ALengthIsTakenAsPeopleWriteIt) {
  const std::pair<const char*, std::int64_t> lengths[] = {
      {"0", 0},          {"30", 30},
      {"030", 30},       {"30m", 30},
      {"90", 90},        {"90m", 90},
      {"1h", 60},        {"1h30m", 90},
      {"1h30", 90},      {"1h0m", 60},
      {"0h5m", 5},       {"24h", 1440},
      {"100h59m", 6059}, {"2147483647h", 128849018820}};
  for (const auto& [text, minutes] : lengths) {
    EXPECT_EQ(minutesFromText(text), minutes) << text;
  }
}

TEST(MinutesFromTextTest, AnyOtherTextIsNone) {
  for (const char* text :
       {"",     " ",      "m",    "h",    "hm", "h30",  "1x",         "1h90m",
        "1h60", "1h1h",   "1m1h", "1.5h", "-5", "+5",   "1h-5m",      "1h+5m",
        "30 m", "1h 30m", "30s",  "1H",   "1d", "soon", "2147483648", "99999999999999999999h"}) {
    EXPECT_EQ(minutesFromText(text), std::nullopt) << text;
  }
}

TEST(DurationTextTest, IsAsTheReferenceValuesSay) {
  int checked = 0;
  const JSONValue rows = testData("vectors/durations.json");
  for (const JSONValue& row : *rows.array()) {
    const JSONValue& expected = *row.member("doctor");
    if (!expected.isNull()) {  // null where the number is not positive
      EXPECT_EQ(durationText(std::stoll(row.member("seconds")->number()->digits)),
                *expected.text());
      ++checked;
    }
  }
  EXPECT_GT(checked, 10);
}

}  // namespace
}  // namespace nodo
