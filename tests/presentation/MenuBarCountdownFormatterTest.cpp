#include <NODOCore/presentation/MenuReport.h>
#include <testing/JSONRows.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace nodo {
namespace {

const Date now = dateFromSeconds(1'769'847'300);

StatusReport reportUntil(std::optional<Date> manualUntil) {
  StatusReport report;
  report.generatedAt = now;
  report.state.manualUntil = manualUntil;
  return report;
}

TEST(MenuBarCountdownFormatterTest, DurationsAreAsTheReferenceValuesSay) {
  for (const JSONValue& row : test::testRows("vectors/durations.json")) {
    EXPECT_EQ(
        MenuBarCountdownFormatter::compactDuration(test::valueOf<std::int64_t>(row, "seconds")),
        test::valueOf<std::string>(row, "compactDuration"));
  }
}

TEST(MenuBarCountdownFormatterTest, DurationsDropWhatIsTooSmallToMatter) {
  const std::vector<std::pair<std::int64_t, std::string>> rows{
      {-1, "0s"},     {0, "0s"},      {1, "1s"},      {59, "59s"},  {60, "1m"},
      {119, "1m"},    {3599, "59m"},  {3600, "1h"},   {3659, "1h"}, {3660, "1h1m"},
      {7500, "2h5m"}, {90000, "25h"}, {176400, "49h"}};
  for (const auto& [seconds, expected] : rows) {
    EXPECT_EQ(MenuBarCountdownFormatter::compactDuration(seconds), expected) << seconds;
  }
}

TEST(MenuBarCountdownFormatterTest, ThereIsNoTextWithoutAReportOrATimer) {
  EXPECT_EQ(MenuBarCountdownFormatter::text(std::nullopt, now), std::nullopt);
  EXPECT_EQ(MenuBarCountdownFormatter::text(reportUntil(std::nullopt), now), std::nullopt);
}

TEST(MenuBarCountdownFormatterTest, TheTextCountsFromTheGivenTime) {
  const StatusReport report = reportUntil(now + Seconds(3660));
  EXPECT_EQ(MenuBarCountdownFormatter::text(report, now), "1h1m");
  EXPECT_EQ(MenuBarCountdownFormatter::text(report, now + Seconds(0.5)), "1h");
  EXPECT_EQ(MenuBarCountdownFormatter::text(report, now + Seconds(3659)), "1s");
}

TEST(MenuBarCountdownFormatterTest, ATimerThatEndedHasNoText) {
  const StatusReport report = reportUntil(now);
  EXPECT_EQ(MenuBarCountdownFormatter::text(report, now - Seconds(0.5)), std::nullopt);
  EXPECT_EQ(MenuBarCountdownFormatter::text(report, now), std::nullopt);
  EXPECT_EQ(MenuBarCountdownFormatter::text(report, now + Seconds(1)), std::nullopt);
}

}  // namespace
}  // namespace nodo
