#include <NODOCore/diagnostics/DoctorReport.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

namespace nodo {
namespace {

using Source = DoctorStatusSource;

constexpr std::string_view unavailable =
    "Warning: helper unavailable; closed-lid prevention will not work.";
constexpr std::string_view lockIsOff =
    "Warning: nodo wants to prevent sleep, but the power lock is off.";
constexpr std::string_view timerRuns =
    "Ready: timer active; power lock is off until nodo needs to prevent sleep.";
constexpr std::string_view idle =
    "Ready: helper works; enable a manual timer or run an agent hook to test.";
constexpr std::string_view settingIsOff =
    "Warning: nodo state says locked, but macOS SleepDisabled is off.";
constexpr std::string_view locked = "Ready: nodo owns the macOS power lock.";

struct Row {
  Source source;
  bool prevents, owns;
  std::optional<std::int64_t> remaining;
  std::optional<bool> live;
  std::string_view expected;
};

StatusReport reportOf(const Row& row) {
  StatusReport report;
  report.decision.shouldPreventSleep = row.prevents;
  report.state.ownsSleepDisable = row.owns;
  report.manualRemainingSeconds = row.remaining;
  return report;
}

std::string described(const Row& row) {
  return std::string(rawValue(row.source)) + " prevents=" + std::to_string(row.prevents) +
         " owns=" + std::to_string(row.owns) +
         " remaining=" + (row.remaining ? std::to_string(*row.remaining) : "none") +
         " live=" + (row.live ? std::to_string(*row.live) : "none");
}

void expectVerdicts(const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    const StatusReport report = reportOf(row);
    EXPECT_EQ(DoctorReportFormatter::verdict(report, row.source, row.live), row.expected)
        << described(row);
    const std::string text =
        DoctorReportFormatter::format(report, row.source, row.live, std::nullopt, std::nullopt);
    EXPECT_TRUE(text.ends_with("\n" + std::string(row.expected))) << described(row) << '\n' << text;
  }
}

TEST(DoctorVerdictTest, ALocalReadingIsNeverReady) {
  std::vector<Row> rows;
  for (const bool prevents : {false, true}) {
    for (const bool owns : {false, true}) {
      for (const std::optional<bool> live :
           {std::optional<bool>(), std::optional(false), std::optional(true)}) {
        rows.push_back({Source::local, prevents, owns, std::nullopt, live, unavailable});
        rows.push_back({Source::local, prevents, owns, 60, live, unavailable});
      }
    }
  }
  expectVerdicts(rows);
}

TEST(DoctorVerdictTest, WithoutTheLockTheDecisionCountsBeforeTheTimer) {
  expectVerdicts({{Source::helper, true, false, std::nullopt, std::nullopt, lockIsOff},
                  {Source::helper, true, false, 60, true, lockIsOff},
                  {Source::helper, false, false, 60, std::nullopt, timerRuns},
                  {Source::helper, false, false, 1, true, timerRuns},
                  {Source::helper, false, false, 0, true, idle},
                  {Source::helper, false, false, -1, false, idle},
                  {Source::helper, false, false, std::nullopt, false, idle}});
}

TEST(DoctorVerdictTest, WithTheLockOnlyALiveSettingThatIsOffIsAWarning) {
  expectVerdicts({{Source::helper, true, true, 60, false, settingIsOff},
                  {Source::helper, false, true, std::nullopt, false, settingIsOff},
                  {Source::helper, true, true, 60, true, locked},
                  {Source::helper, true, true, 60, std::nullopt, locked},
                  {Source::helper, false, true, std::nullopt, std::nullopt, locked}});
}

}  // namespace
}  // namespace nodo
