#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/base/TextEnum.h>
#include <NODOCore/control/Reports.h>
#include <NODOCore/diagnostics/DoctorReport.h>
#include <NODOCore/diagnostics/Headline.h>
#include <NODOCore/presentation/SetupMenu.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace nodo {

class JSONReader;
class JSONValue;
class JSONWriter;

/// Which icon the menu bar shows.
enum class MenuBarIconState {
  loading,       ///< there is no report yet
  off,           ///< the machine may sleep and nothing needs attention
  warning,       ///< something is wrong or inconsistent
  manualActive,  ///< a timer keeps the machine awake, or is about to
};

template <>
struct EnumTexts<MenuBarIconState> {
  static constexpr std::array cases{EnumText{MenuBarIconState::loading, "loading"},
                                    EnumText{MenuBarIconState::off, "off"},
                                    EnumText{MenuBarIconState::warning, "warning"},
                                    EnumText{MenuBarIconState::manualActive, "manualActive"}};
};

/// The icon for the latest report. Pure.
///
/// `errorMessage` is the last error met while fetching a report; it counts only as long as there is
/// none. A timer that runs shows as active even while something keeps the lock off, and a setup
/// that needs attention shows only while nothing is kept awake.
MenuBarIconState menuBarIconState(const std::optional<StatusReport>& report,
                                  const std::optional<std::string>& errorMessage,
                                  bool hookFallbackActive, bool setupNeedsAttention);

/// The short countdown of the timer beside the menu bar's icon. Pure.
struct MenuBarCountdownFormatter {
  /// What is left of the report's timer at `at`; nothing when no whole second is.
  static std::optional<std::string> text(const std::optional<StatusReport>& report, Date at);

  /// "59s", "59m", "2h" or "2h5m": without the seconds from a minute upwards, and never in days. A
  /// negative number counts as 0.
  static std::string compactDuration(std::int64_t seconds);
};

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
  DoctorVerdict verdict = DoctorVerdict::daemonUnavailable;  ///< in JSON, its sentence
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

void encode(JSONWriter& to, const MenuTriggers& triggers);
void decode(const JSONReader& from, MenuTriggers& triggers);
void encode(JSONWriter& to, const MenuReport& report);
void decode(const JSONReader& from, MenuReport& report);

/// The report as programs read it: its members, then "headline".
JSONValue encode(const MenuReport& report, const Headline& headline);

}  // namespace nodo
