#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/control/StatusReport.h>

#include <optional>

namespace nodo {

/// When the daemon has to run again although nothing happens.
struct ReconcileSchedule {
  std::optional<Date> deadline;  ///< absent: nothing is pending

  /// Just after the next moment at which a release can fall due: the end of the manual period or of
  /// the no-route grace, whichever comes first, plus `graceSeconds`. A lock without either is
  /// looked at again after the grace.
  static ReconcileSchedule sleepReleaseDeadline(const StatusReport& report, double graceSeconds);

  bool operator==(const ReconcileSchedule&) const = default;
};

}  // namespace nodo
