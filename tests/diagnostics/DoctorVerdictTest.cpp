#include <NODOCore/diagnostics/DoctorReport.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace nodo {
namespace {

using Source = DoctorStatusSource;
using Verdict = DoctorVerdict;

struct Row {
  Source source;
  bool prevents, owns;
  std::optional<std::int64_t> remaining;
  std::optional<bool> live;
  Verdict expected;
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
    EXPECT_EQ(doctorVerdict(report, row.source, row.live), row.expected) << described(row);
    const std::string text =
        DoctorReportFormatter::format(report, row.source, row.live, std::nullopt, std::nullopt);
    EXPECT_TRUE(text.ends_with("\n" + std::string(rawValue(row.expected))))
        << described(row) << '\n'
        << text;
  }
}

TEST(DoctorVerdictTest, EachHasItsFixedSentence) {
  const std::vector<std::pair<Verdict, std::string_view>> sentences{
      {Verdict::daemonUnavailable,
       "Warning: helper unavailable; closed-lid prevention will not work."},
      {Verdict::lockMissing, "Warning: nodo wants to prevent sleep, but the power lock is off."},
      {Verdict::timerActive,
       "Ready: timer active; power lock is off until nodo needs to prevent sleep."},
      {Verdict::idle, "Ready: helper works; enable a manual timer or run an agent hook to test."},
      {Verdict::settingOff, "Warning: nodo state says locked, but macOS SleepDisabled is off."},
      {Verdict::locked, "Ready: nodo owns the macOS power lock."}};
  EXPECT_EQ(allCases<Verdict>().size(), sentences.size());
  for (const auto& [verdict, sentence] : sentences) {
    EXPECT_EQ(rawValue(verdict), sentence);
    EXPECT_EQ(isReady(verdict), sentence.starts_with("Ready: ")) << sentence;
  }
}

TEST(DoctorVerdictTest, ALocalReadingIsNeverReady) {
  std::vector<Row> rows;
  for (const bool prevents : {false, true}) {
    for (const bool owns : {false, true}) {
      for (const std::optional<bool> live :
           {std::optional<bool>(), std::optional(false), std::optional(true)}) {
        rows.push_back(
            {Source::local, prevents, owns, std::nullopt, live, Verdict::daemonUnavailable});
        rows.push_back({Source::local, prevents, owns, 60, live, Verdict::daemonUnavailable});
      }
    }
  }
  expectVerdicts(rows);
}

TEST(DoctorVerdictTest, WithoutTheLockTheDecisionCountsBeforeTheTimer) {
  expectVerdicts({{Source::helper, true, false, std::nullopt, std::nullopt, Verdict::lockMissing},
                  {Source::helper, true, false, 60, true, Verdict::lockMissing},
                  {Source::helper, false, false, 60, std::nullopt, Verdict::timerActive},
                  {Source::helper, false, false, 1, true, Verdict::timerActive},
                  {Source::helper, false, false, 0, true, Verdict::idle},
                  {Source::helper, false, false, -1, false, Verdict::idle},
                  {Source::helper, false, false, std::nullopt, false, Verdict::idle}});
}

TEST(DoctorVerdictTest, WithTheLockOnlyALiveSettingThatIsOffIsAWarning) {
  expectVerdicts({{Source::helper, true, true, 60, false, Verdict::settingOff},
                  {Source::helper, false, true, std::nullopt, false, Verdict::settingOff},
                  {Source::helper, true, true, 60, true, Verdict::locked},
                  {Source::helper, true, true, 60, std::nullopt, Verdict::locked},
                  {Source::helper, false, true, std::nullopt, std::nullopt, Verdict::locked}});
}

}  // namespace
}  // namespace nodo
