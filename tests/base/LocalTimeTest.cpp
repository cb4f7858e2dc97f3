#include <NODOCore/base/LocalTime.h>
#include <testing/EnvironmentVariable.h>

#include <clocale>
#include <optional>
#include <string>
#include <system_error>

#include <gtest/gtest.h>

namespace nodo {
namespace {

using test::EnvironmentVariable;

// Central Europe by rule, so that most of this needs no time-zone data.
const char* const berlin = "CET-1CEST,M3.5.0,M10.5.0/3";

std::optional<double> secondsOf(const std::string& text) {
  const auto date = dateFromLocalTime(text);
  return date ? std::optional(secondsSince1970(*date)) : std::nullopt;
}

std::string textOf(double seconds) {
  return localTimeText(dateFromSeconds(seconds));
}

TEST(LocalTimeTest, AnInstantIsWrittenInTheProcesssTimeZone) {
  const struct {
    const char* zone;
    double seconds;
    const char* expected;
  } cases[] = {
      {"UTC0", 1769842800, "2026-01-31 07:00:00"},
      {berlin, 1769842800, "2026-01-31 08:00:00"},
      {berlin, 1782900000, "2026-07-01 12:00:00"},
      {"EST5", 1769842800, "2026-01-31 02:00:00"},
      {"<+0545>-5:45", 1769842800, "2026-01-31 12:45:00"},
      {"UTC0", 0, "1970-01-01 00:00:00"},
      {"UTC0", 253402300800, "10000-01-01 00:00:00"},
  };

  for (const auto& [zone, seconds, expected] : cases) {
    const EnvironmentVariable set("TZ", zone);
    EXPECT_EQ(textOf(seconds), expected) << zone;
  }
}

TEST(LocalTimeTest, FractionsAreRoundedDown) {
  const EnvironmentVariable zone("TZ", "UTC0");
  EXPECT_EQ(textOf(1769842800.999), "2026-01-31 07:00:00");
  EXPECT_EQ(textOf(-0.5), "1969-12-31 23:59:59");
}

TEST(LocalTimeTest, AnInstantBeyondTheCalendarOfTheSystemIsAnError) {
  const EnvironmentVariable zone("TZ", "UTC0");
  EXPECT_THROW(textOf(9e18), std::system_error);
}

TEST(LocalTimeTest, ATextIsReadInTheProcesssTimeZone) {
  const struct {
    const char* zone;
    const char* text;
    double expected;
  } cases[] = {
      {"UTC0", "2026-01-31 07:00:00", 1769842800}, {berlin, "2026-01-31 08:00:00", 1769842800},
      {berlin, "2026-07-01 12:00:00", 1782900000}, {"EST5", "2026-01-31 02:00:00", 1769842800},
      {"UTC0", "2024-02-29 23:59:59", 1709251199}, {"UTC0", "1969-12-31 23:59:59", -1},
  };

  for (const auto& [zone, text, expected] : cases) {
    const EnvironmentVariable set("TZ", zone);
    EXPECT_EQ(secondsOf(text), expected) << zone << " " << text;
  }
}

TEST(LocalTimeTest, AnythingButTheNineteenCharactersIsNotRead) {
  const EnvironmentVariable zone("TZ", berlin);
  for (const char* text : {"", "2026-01-31", "2026-01-31T08:00:00", "2026-01-31 08:00",
                           "2026-01-31 08:00:0", "2026-01-31 08:00:00 ", " 2026-01-31 08:00:00",
                           "2026-01-31 08:00:00Z", "2026-1-31 08:00:00", "2026-01-31  8:00:00",
                           "+026-01-31 08:00:00", "2026-01-31 08-00-00", "2026/01/31 08:00:00",
                           "2026-01-31 08:00:0x", "٢٠٢٦-01-31 08:00:00", "12026-01-31 08:00:00"}) {
    EXPECT_EQ(secondsOf(text), std::nullopt) << text;
  }
}

TEST(LocalTimeTest, ADayOrTimeThatDoesNotExistIsNotRead) {
  const EnvironmentVariable zone("TZ", "UTC0");
  for (const char* text : {"2026-02-29 08:00:00", "2026-13-01 08:00:00", "2026-00-01 08:00:00",
                           "2026-01-00 08:00:00", "2026-01-32 08:00:00", "2026-04-31 08:00:00",
                           "2026-01-31 24:00:00", "2026-01-31 08:60:00", "2026-01-31 23:59:60"}) {
    EXPECT_EQ(secondsOf(text), std::nullopt) << text;
  }
}

TEST(LocalTimeTest, ATimeThatTheClockSkipsIsNotRead) {
  const EnvironmentVariable zone("TZ", berlin);
  EXPECT_EQ(secondsOf("2026-03-29 01:59:59"), 1774745999);
  EXPECT_EQ(secondsOf("2026-03-29 02:00:00"), std::nullopt);
  EXPECT_EQ(secondsOf("2026-03-29 02:30:00"), std::nullopt);
  EXPECT_EQ(secondsOf("2026-03-29 02:59:59"), std::nullopt);
  EXPECT_EQ(secondsOf("2026-03-29 03:00:00"), 1774746000);
}

TEST(LocalTimeTest, OfATimeThatTheClockShowsTwiceTheLaterInstantCounts) {
  const EnvironmentVariable zone("TZ", berlin);
  EXPECT_EQ(secondsOf("2026-10-25 01:59:59"), 1792886399);
  EXPECT_EQ(secondsOf("2026-10-25 02:00:00"), 1792890000);
  EXPECT_EQ(secondsOf("2026-10-25 02:30:00"), 1792891800);
  EXPECT_EQ(secondsOf("2026-10-25 02:59:59"), 1792893599);
  EXPECT_EQ(secondsOf("2026-10-25 03:00:00"), 1792893600);
}

TEST(LocalTimeTest, AHalfHourOfDaylightSavingIsMinded) {
  const EnvironmentVariable zone("TZ", "<+1030>-10:30<+11>-11,M10.1.0,M4.1.0");
  EXPECT_EQ(secondsOf("2026-10-04 02:15:00"), std::nullopt);
  EXPECT_EQ(secondsOf("2026-10-04 02:30:00"), 1791041400);
  EXPECT_EQ(secondsOf("2026-04-05 01:45:00"), 1775315700);
  EXPECT_EQ(secondsOf("2026-04-05 01:15:00"), 1775312100);
}

TEST(LocalTimeTest, AZoneThatChangesItsStandardTimeIsMinded) {
  {
    const EnvironmentVariable zone("TZ", "Europe/Moscow");
    EXPECT_EQ(secondsOf("2014-10-26 01:30:00"), 1414276200) << "is time-zone data installed?";
  }
  const EnvironmentVariable zone("TZ", "Pacific/Apia");  // 30 December 2011 never was
  EXPECT_EQ(secondsOf("2011-12-29 23:59:59"), 1325239199) << "is time-zone data installed?";
  EXPECT_EQ(secondsOf("2011-12-30 12:00:00"), std::nullopt);
  EXPECT_EQ(secondsOf("2011-12-31 00:00:00"), 1325239200);
}

TEST(LocalTimeTest, WhatIsWrittenCanBeReadUnlessTheClockShowedItTwice) {
  for (const char* name : {berlin, "<+1030>-10:30<+11>-11,M10.1.0,M4.1.0", "America/St_Johns"}) {
    const EnvironmentVariable zone("TZ", name);
    constexpr int step = 4321;
    for (double seconds = 1767225600; seconds < 1767225600 + 366.0 * 86400; seconds += step) {
      const auto read = dateFromLocalTime(textOf(seconds));
      ASSERT_TRUE(read) << name << " " << seconds;
      const double later = secondsSince1970(*read) - seconds;
      ASSERT_TRUE(later == 0 || later == 1800 || later == 3600) << name << " " << seconds;
      ASSERT_EQ(localTimeText(*read), textOf(seconds));
    }
  }
}

TEST(LocalTimeTest, TheLocaleChangesNothing) {
  const EnvironmentVariable zone("TZ", "UTC0");
  const std::string before = std::setlocale(LC_ALL, nullptr);
  for (const char* locale :
       {"ar_EG.UTF-8", "fa_IR.UTF-8", "th_TH.UTF-8", "de_DE.UTF-8", "C.UTF-8"}) {
    if (std::setlocale(LC_ALL, locale) == nullptr) {
      continue;  // C.UTF-8 is always there
    }
    EXPECT_EQ(textOf(1769842800), "2026-01-31 07:00:00") << locale;
    EXPECT_EQ(secondsOf("2026-01-31 07:00:00"), 1769842800) << locale;
  }
  std::setlocale(LC_ALL, before.c_str());
}

TEST(ClockTimeTest, ATimeOfDayIsReadAsTheClockShowsIt) {
  EXPECT_EQ(clockTimeFromText("17:05"), (ClockTime{17, 5}));
  EXPECT_EQ(clockTimeFromText("9:05"), (ClockTime{9, 5}));
  EXPECT_EQ(clockTimeFromText("00:00"), (ClockTime{0, 0}));
  EXPECT_EQ(clockTimeFromText("23:59"), (ClockTime{23, 59}));
  for (const char* text :
       {"", ":", "17", "1705", "17:5", "17:60", "24:00", "25:00", "-1:00", "+1:00", "17:-5",
        "017:05", "17:05:00", "17:05 ", "17.05", "5pm", ":05", "17:"}) {
    EXPECT_EQ(clockTimeFromText(text), std::nullopt) << text;
  }
}

// The time of `now` and the next that is meant by `time`, both as the clock shows them.
void expectNext(const char* now, ClockTime time, const char* expected) {
  const Date next = nextTimeOfDay(time, dateFromLocalTime(now).value());
  EXPECT_EQ(localTimeText(next), expected) << now;
}

TEST(ClockTimeTest, TheNextTimeIsTodayOrTomorrow) {
  for (const char* name : {berlin, "UTC0", "<+0545>-5:45", "EST5", "Europe/Berlin"}) {
    const EnvironmentVariable zone("TZ", name);
    expectNext("2026-01-31 08:15:00", {17, 30}, "2026-01-31 17:30:00");
    expectNext("2026-01-31 08:15:00", {8, 16}, "2026-01-31 08:16:00");
    expectNext("2026-01-31 08:15:59", {8, 16}, "2026-01-31 08:16:00");
    expectNext("2026-01-31 08:15:00", {8, 15}, "2026-02-01 08:15:00");
    expectNext("2026-01-31 08:15:30", {8, 15}, "2026-02-01 08:15:00");
    expectNext("2026-12-31 23:59:00", {0, 0}, "2027-01-01 00:00:00");
  }
}

TEST(ClockTimeTest, TheWallClockCountsAcrossAChangeOfDaylightSavingTime) {
  for (const char* name : {berlin, "Europe/Berlin"}) {
    const EnvironmentVariable zone("TZ", name);
    const Date spring = dateFromLocalTime("2026-03-28 23:00:00").value();
    EXPECT_EQ(nextTimeOfDay({7, 0}, spring) - spring, Seconds(7 * 3600)) << name;
    const Date autumn = dateFromLocalTime("2026-10-24 23:00:00").value();
    EXPECT_EQ(nextTimeOfDay({7, 0}, autumn) - autumn, Seconds(9 * 3600)) << name;
  }
}

TEST(ClockTimeTest, ATimeThatTheClockSkipsIsTheMomentOfThat) {
  const EnvironmentVariable zone("TZ", berlin);
  expectNext("2026-03-29 01:00:00", {2, 30}, "2026-03-29 03:00:00");
  expectNext("2026-03-29 01:00:00", {2, 0}, "2026-03-29 03:00:00");
  expectNext("2026-03-29 01:00:00", {3, 0}, "2026-03-29 03:00:00");
  expectNext("2026-03-29 03:00:00", {2, 30}, "2026-03-30 02:30:00");
}

TEST(ClockTimeTest, OfATimeThatTheClockShowsTwiceTheFirstThatLiesAheadIsMeant) {
  const EnvironmentVariable zone("TZ", berlin);
  const Date second = dateFromLocalTime("2026-10-25 02:30:00").value();
  const Date first = second - Seconds(3600);
  EXPECT_EQ(nextTimeOfDay({2, 30}, first - Seconds(7200)), first);
  EXPECT_EQ(nextTimeOfDay({2, 30}, first), second);
  EXPECT_EQ(nextTimeOfDay({2, 30}, first + Seconds(900)), second);
  EXPECT_EQ(nextTimeOfDay({2, 30}, second), second + Seconds(86400));
  EXPECT_EQ(nextTimeOfDay({2, 0}, first), second - Seconds(1800)) << "when it is put back";
}

}  // namespace
}  // namespace nodo
