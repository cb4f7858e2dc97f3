#pragma once

#include <NODOCore/base/TextEnum.h>

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace nodo {

class JSONReader;
class JSONValue;

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

JSONValue encode(const SleepBlocker& blocker);
void decode(const JSONReader& from, SleepBlocker& blocker);

}  // namespace nodo
