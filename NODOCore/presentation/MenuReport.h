#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/control/StatusReport.h>
#include <NODOCore/diagnostics/DoctorReportFormatter.h>
#include <NODOCore/presentation/MenuBarIconState.h>
#include <NODOCore/presentation/SetupMenuSignals.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace nodo {

class JSONReader;
class JSONValue;

/// The keep-awake requests of the last 12 hours, as a menu shows them.
struct MenuTriggers {
  std::string line;  ///< e.g. "Triggers 12h  ··▂█  5"
  std::int64_t total = 0;
  std::vector<std::int64_t> buckets;  ///< requests an hour, oldest hour first
  std::int64_t hours = 0;

  bool operator==(const MenuTriggers&) const = default;
};

/// What a menu bar shows at one instant, for programs that draw it.
struct MenuReport {
  Date generatedAt;
  MenuBarIconState iconState = MenuBarIconState::loading;
  std::optional<std::string> countdown;  ///< what is left of the timer, e.g. "2h5m"
  std::optional<std::string> requester;  ///< who asked last, e.g. "Codex - my project"
  MenuTriggers triggers;
  std::optional<std::string> setupLine;  ///< what is left to set up, if anything
  std::string verdict;                   ///< that of the doctor report
  DoctorStatusSource statusSource = DoctorStatusSource::local;

  MenuReport() = default;

  /// What follows at `now` from a status and the setup. `liveSleepDisabled` is the system's own
  /// setting, as for the doctor report; `hookFallbackActive` says that a hook had to do without
  /// nodo.
  MenuReport(const StatusReport& report, DoctorStatusSource statusSource,
             std::optional<bool> liveSleepDisabled, bool hookFallbackActive,
             const SetupMenuSignals& setup, Date now);

  bool operator==(const MenuReport&) const = default;
};

JSONValue encode(const MenuTriggers& triggers);
void decode(const JSONReader& from, MenuTriggers& triggers);
JSONValue encode(const MenuReport& report);
void decode(const JSONReader& from, MenuReport& report);

}  // namespace nodo
