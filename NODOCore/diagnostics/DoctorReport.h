#pragma once

#include <NODOCore/control/StatusReport.h>
#include <NODOCore/diagnostics/DoctorReportFormatter.h>
#include <NODOCore/hooks/AgentHookFallbackStatus.h>
#include <NODOCore/hooks/AgentHookSetupInspection.h>

#include <optional>
#include <string>

namespace nodo {

class JSONReader;
class JSONValue;

/// The facts of the health check, for programs; `text` is the same for people.
struct DoctorReport {
  DoctorStatusSource statusSource = DoctorStatusSource::local;
  StatusReport report;
  std::optional<bool> liveSleepDisabled;  ///< the system's own setting; absent: not known
  std::optional<AgentHookFallbackStatus> hookFallback;
  std::optional<AgentHookSetupInspection> hookInspection;
  std::string verdict;  ///< one sentence that begins with "Ready:" or "Warning:"

  DoctorReport() = default;

  /// The verdict follows from the rest.
  DoctorReport(DoctorStatusSource statusSource, StatusReport report,
               std::optional<bool> liveSleepDisabled,
               std::optional<AgentHookFallbackStatus> hookFallback,
               std::optional<AgentHookSetupInspection> hookInspection);

  /// Whether the verdict is no warning.
  bool isReady() const;

  /// The facts as DoctorReportFormatter writes them.
  std::string text() const;

  bool operator==(const DoctorReport&) const = default;
};

JSONValue encode(const DoctorReport& report);
void decode(const JSONReader& from, DoctorReport& report);

}  // namespace nodo
