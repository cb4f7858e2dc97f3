#pragma once

#include <NODOCore/base/TextEnum.h>
#include <NODOCore/control/Reports.h>
#include <NODOCore/hooks/AgentHookInstaller.h>
#include <NODOCore/hooks/AgentHookLogInspector.h>

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace nodo {

/// Where a status came from.
enum class DoctorStatusSource {
  helper,  ///< the daemon
  local,   ///< the tool's own reading, as the daemon could not be reached
};

template <>
struct EnumTexts<DoctorStatusSource> {
  static constexpr std::array cases{EnumText{DoctorStatusSource::helper, "helper"},
                                    EnumText{DoctorStatusSource::local, "local"}};
};

/// The source as people read it: "helper" or "local fallback".
std::string_view displayName(DoctorStatusSource source);

/// Texts that explain a status to a person. Pure.
///
/// The hook script searches the health check for some of its lines, so they are fixed. A control
/// character in what comes from outside (a requester, a process, a path) is shown escaped: it
/// cannot begin a line of its own.
struct DoctorReportFormatter {
  /// The health check, with the verdict as its last line: lines joined by line feeds, none at the
  /// end. `liveSleepDisabled` is the system's own setting, absent when it is not known; an absent
  /// `hookFallback` or `hookInspection` has no lines.
  static std::string format(const StatusReport& report, DoctorStatusSource source,
                            std::optional<bool> liveSleepDisabled,
                            const std::optional<AgentHookFallbackStatus>& hookFallback,
                            const std::optional<AgentHookSetupInspection>& hookInspection);

  /// The health check in one sentence that begins with "Ready:" or "Warning:". A local reading is
  /// never ready.
  static std::string_view verdict(const StatusReport& report, DoctorStatusSource source,
                                  std::optional<bool> liveSleepDisabled);

  /// What a repair led to, in lines as above.
  static std::string formatRepairResult(const StatusReport& report, DoctorStatusSource source);
};

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
