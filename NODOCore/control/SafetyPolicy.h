#pragma once

#include <cstdint>

namespace nodo {

class JSONReader;
class JSONValue;

/// The four limits within which the machine may be kept awake. Kept as given: nothing is clamped,
/// and the library has no default policy (the programs choose theirs).
struct SafetyPolicy {
  /// Percent; on battery, a charge at or below this forbids keeping awake (100 or more: always).
  std::int64_t minimumBatteryPercent = 0;
  /// Minutes; the longest period that one request may ask for. A longer one is refused.
  std::int64_t maxManualDurationMinutes = 0;
  /// Seconds; how long after the lid was opened that counts as a reason of its own.
  std::int64_t lidOpenGraceSeconds = 0;
  /// Seconds; how long the default route may be missing during a manual period (negative: not at
  /// all).
  std::int64_t noRouteGraceSeconds = 0;

  bool operator==(const SafetyPolicy&) const = default;
};

JSONValue encode(const SafetyPolicy& policy);

/// Requires all four keys.
void decode(const JSONReader& from, SafetyPolicy& policy);

}  // namespace nodo
