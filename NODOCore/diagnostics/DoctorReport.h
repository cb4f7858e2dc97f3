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

class JSONReader;
class JSONWriter;

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

/// What the health check comes to.
enum class DoctorVerdict {
  daemonUnavailable,  ///< a local reading, which is never ready
  lockMissing,        ///< sleep is to be prevented, but nodo does not hold the lock
  timerActive,        ///< a timer runs and does not need the lock now
  idle,               ///< there is nothing to do
  settingOff,         ///< nodo holds the lock, but the system's own setting is off
  locked,             ///< nodo holds the lock
};

/// A sentence for each, which begins with "Ready:" or "Warning:".
template <>
struct EnumTexts<DoctorVerdict> {
  static constexpr std::array cases{
      EnumText{DoctorVerdict::daemonUnavailable,
               "Warning: helper unavailable; closed-lid prevention will not work."},
      EnumText{DoctorVerdict::lockMissing,
               "Warning: nodo wants to prevent sleep, but the power lock is off."},
      EnumText{DoctorVerdict::timerActive,
               "Ready: timer active; power lock is off until nodo needs to prevent sleep."},
      EnumText{DoctorVerdict::idle,
               "Ready: helper works; enable a manual timer or run an agent hook to test."},
      EnumText{DoctorVerdict::settingOff,
               "Warning: nodo state says locked, but macOS SleepDisabled is off."},
      EnumText{DoctorVerdict::locked, "Ready: nodo owns the macOS power lock."}};
};

/// Whether the verdict is no warning.
bool isReady(DoctorVerdict verdict);

/// The verdict on a status. `liveSleepDisabled` is the system's own setting, absent when it is not
/// known. Pure.
DoctorVerdict doctorVerdict(const StatusReport& report, DoctorStatusSource source,
                            std::optional<bool> liveSleepDisabled);

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

  /// What a repair led to, in lines as above.
  static std::string formatRepairResult(const StatusReport& report, DoctorStatusSource source);
};

/// The facts of the health check, for programs; `text` is the same for people.
struct DoctorReport {
  DoctorStatusSource statusSource = DoctorStatusSource::local;
  StatusReport report;
  std::optional<bool> liveSleepDisabled;  ///< the system's own setting; absent: not known
  std::optional<AgentHookFallbackStatus> hookFallback;
  std::optional<AgentHookSetupInspection> hookInspection;
  DoctorVerdict verdict = DoctorVerdict::daemonUnavailable;  ///< in JSON, its sentence

  DoctorReport() = default;

  /// The verdict follows from the rest.
  DoctorReport(DoctorStatusSource statusSource, StatusReport report,
               std::optional<bool> liveSleepDisabled,
               std::optional<AgentHookFallbackStatus> hookFallback,
               std::optional<AgentHookSetupInspection> hookInspection);

  /// The facts as DoctorReportFormatter writes them.
  std::string text() const;

  bool operator==(const DoctorReport&) const = default;
};

void encode(JSONWriter& to, const DoctorReport& report);
void decode(const JSONReader& from, DoctorReport& report);

}  // namespace nodo
