#include <NODOCore/diagnostics/DoctorReport.h>

#include <gtest/gtest.h>

namespace nodo {
namespace {

TEST(DoctorRepairResultTest, ARepairThatEndedEverythingSaysSo) {
  StatusReport report;
  report.state.lastStopReason = "repair";
  report.decision.stopReason = "not_armed";
  EXPECT_EQ(DoctorReportFormatter::formatRepairResult(report, DoctorStatusSource::local),
            "Repair finished via local fallback.\n"
            "Status: inactive\n"
            "Power lock: off\n"
            "Timer: off\n"
            "Last stop reason: repair\n"
            "nodo is not preventing sleep.");
}

TEST(DoctorRepairResultTest, ARepairAfterWhichSleepIsStillPreventedSaysSo) {
  StatusReport report;
  report.state.ownsSleepDisable = true;
  report.decision.shouldPreventSleep = true;
  report.manualRemainingSeconds = 725;
  EXPECT_EQ(DoctorReportFormatter::formatRepairResult(report, DoctorStatusSource::helper),
            "Repair finished via helper.\n"
            "Status: active\n"
            "Power lock: on\n"
            "Timer: 12m 5s remaining\n"
            "nodo still wants to prevent sleep.");
}

TEST(DoctorRepairResultTest, TheClosingSentenceLooksAtTheDecisionAlone) {
  StatusReport report;
  report.manualRemainingSeconds = 1;
  const std::string text =
      DoctorReportFormatter::formatRepairResult(report, DoctorStatusSource::helper);
  EXPECT_NE(text.find("Status: active\n"), std::string::npos);
  EXPECT_TRUE(text.ends_with("nodo is not preventing sleep."));
}

TEST(DoctorRepairResultTest, ATimerWithoutATimeLeftIsOff) {
  for (const std::optional<std::int64_t> remaining :
       {std::optional<std::int64_t>(), std::optional<std::int64_t>(0),
        std::optional<std::int64_t>(-1)}) {
    StatusReport report;
    report.manualRemainingSeconds = remaining;
    const std::string text =
        DoctorReportFormatter::formatRepairResult(report, DoctorStatusSource::helper);
    EXPECT_NE(text.find("Status: inactive\nPower lock: off\nTimer: off\n"), std::string::npos);
  }
}

TEST(DoctorRepairResultTest, AStopReasonCannotAddALine) {
  StatusReport report;
  report.state.lastStopReason = "repair\nnodo still wants to prevent sleep.";
  const std::string text =
      DoctorReportFormatter::formatRepairResult(report, DoctorStatusSource::helper);
  EXPECT_TRUE(
      text.ends_with("Last stop reason: repair\\nnodo still wants to prevent sleep.\n"
                     "nodo is not preventing sleep."))
      << text;
}

}  // namespace
}  // namespace nodo
