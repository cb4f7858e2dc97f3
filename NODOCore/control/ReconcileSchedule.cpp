#include <NODOCore/control/ReconcileSchedule.h>

#include <algorithm>

namespace nodo {

ReconcileSchedule ReconcileSchedule::sleepReleaseDeadline(const StatusReport& report,
                                                          double graceSeconds) {
  if (!report.state.ownsSleepDisable && !report.decision.shouldPreventSleep) {
    return {};
  }
  std::optional<Date> earliest;
  if (report.state.manualUntil) {
    earliest = std::max(*report.state.manualUntil, report.generatedAt);
  }
  if (report.noRouteGraceRemainingSeconds) {
    const Date graceEnd =
        report.generatedAt + Seconds(static_cast<double>(*report.noRouteGraceRemainingSeconds));
    earliest = earliest ? std::min(*earliest, graceEnd) : graceEnd;
  }
  return {earliest.value_or(report.generatedAt) + Seconds(graceSeconds)};
}

}  // namespace nodo
