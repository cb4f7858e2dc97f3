#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/base/TextEnum.h>
#include <NODOCore/power/CommandRunning.h>

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace nodo {

class JSONReader;
class JSONWriter;

/// What a power assertion keeps from sleeping.
enum class SleepBlockerScope { systemSleep, displaySleep, other };

template <>
struct EnumTexts<SleepBlockerScope> {
  static constexpr std::array cases{EnumText{SleepBlockerScope::systemSleep, "systemSleep"},
                                    EnumText{SleepBlockerScope::displaySleep, "displaySleep"},
                                    EnumText{SleepBlockerScope::other, "other"}};
};

/// One assertion that one process holds. All of its texts are foreign: any process may name itself
/// and its assertion as it likes.
struct SleepBlocker {
  std::int64_t pid = 0;                   ///< 0 when it could not be read
  std::string processName = "unknown";    ///< lower case when unknown, unlike the type
  std::string duration;                   ///< how long it has been held, as printed; may be empty
  std::string assertionType = "Unknown";  ///< e.g. "PreventUserIdleSystemSleep"
  std::string assertionName;              ///< why, in the process's own words
  SleepBlockerScope scope = SleepBlockerScope::other;
  std::string rawLine;  ///< the whole line as read, without blanks around it

  /// Identifies the blocker within a report: "412-PreventUserIdleSystemSleep-Playing audio".
  std::string id() const;

  bool operator==(const SleepBlocker&) const = default;
};

/// What a macOS assertion type blocks. Exact and case-sensitive; the assertion's name plays no
/// part.
SleepBlockerScope sleepBlockerScope(std::string_view assertionType);

void encode(JSONWriter& to, const SleepBlocker& blocker);
void decode(const JSONReader& from, SleepBlocker& blocker);

/// What affects the machine's sleep: the live settings and the assertions that processes hold.
struct SleepDiagnosticsReport {
  Date generatedAt;
  std::optional<bool> sleepDisabled;              ///< the machine-wide sleep lock; absent: unknown
  std::optional<std::string> sleepLine;           ///< the live "sleep" setting as printed
  std::optional<std::string> displaySleepLine;    ///< the live "displaysleep" setting as printed
  std::map<std::string, bool> assertionStatuses;  ///< system-wide flags by name
  std::vector<SleepBlocker> blockers;             ///< in the system's order

  bool operator==(const SleepDiagnosticsReport&) const = default;
};

void encode(JSONWriter& to, const SleepDiagnosticsReport& report);
void decode(const JSONReader& from, SleepDiagnosticsReport& report);

/// Reads what affects the sleep of a Mac with `pmset -g live` and `pmset -g assertions`.
struct SleepDiagnosticsInspector {
  std::shared_ptr<const CommandRunning> runner;

  /// Runs both tools and reads their output, whatever their exit status. Throws the runner's error
  /// when one cannot be started; the second is not run then.
  SleepDiagnosticsReport report(Date now) const;

  /// The same for texts that are at hand. Pure; unexpected text gives absent values, an empty map
  /// and blockers with placeholders. Takes time linear in the texts' length.
  static SleepDiagnosticsReport parse(std::string_view liveOutput,
                                      std::string_view assertionsOutput, Date generatedAt);

  /// The blocker that one line of the assertions' list names.
  static SleepBlocker parseBlocker(std::string_view line);
};

}  // namespace nodo
