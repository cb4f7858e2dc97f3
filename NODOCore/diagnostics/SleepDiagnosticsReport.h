#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/diagnostics/SleepBlocker.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace nodo {

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

JSONValue encode(const SleepDiagnosticsReport& report);
void decode(const JSONReader& from, SleepDiagnosticsReport& report);

}  // namespace nodo
