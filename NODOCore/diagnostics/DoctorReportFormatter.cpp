#include <NODOCore/diagnostics/DoctorReportFormatter.h>
#include <NODOCore/presentation/DurationText.h>

namespace nodo {
namespace {

bool isTimerRunning(const StatusReport& report) {
  return report.manualRemainingSeconds.value_or(0) >= 1;
}

std::string_view activityWord(const StatusReport& report) {
  return report.decision.shouldPreventSleep || isTimerRunning(report) ? "active" : "inactive";
}

std::string_view lockWord(const StatusReport& report) {
  return report.state.ownsSleepDisable ? "on" : "off";
}

std::string timerText(const StatusReport& report) {
  return isTimerRunning(report) ? durationText(*report.manualRemainingSeconds) + " remaining"
                                : "off";
}

}  // namespace

std::string_view displayName(DoctorStatusSource source) {
  return source == DoctorStatusSource::helper ? "helper" : "local fallback";
}

std::string DoctorReportFormatter::formatRepairResult(const StatusReport& report,
                                                      DoctorStatusSource source) {
  std::string text = "Repair finished via " + std::string(displayName(source)) + ".";
  text += "\nStatus: " + std::string(activityWord(report));
  text += "\nPower lock: " + std::string(lockWord(report));
  text += "\nTimer: " + timerText(report);
  if (report.state.lastStopReason) {
    text += "\nLast stop reason: " + *report.state.lastStopReason;
  }
  text += report.decision.shouldPreventSleep ? "\nnodo still wants to prevent sleep."
                                             : "\nnodo is not preventing sleep.";
  return text;
}

}  // namespace nodo
