#pragma once

#include <NODOCore/sensing/AgentDetector.h>
#include <NODOCore/sensing/SystemSnapshot.h>
#include <NODOCore/state/NODOState.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace nodo {

class JSONReader;
class JSONWriter;

/// The words by which decisions, the state's audit, reports and the doctor name their reasons. They
/// are stored in files and searched for by scripts, so they never change.
namespace reason {

// Why sleep is prevented.
inline constexpr char manualTimer[] = "manual_timer";
inline constexpr char manualLease[] = "manual_lease";  // a timer that an agent extended
inline constexpr char lidOpenGrace[] = "lid_open_grace";

// Which safety rule forbids it.
inline constexpr char batteryBelowThreshold[] = "battery_below_threshold";
inline constexpr char networkUnavailable[] = "network_unavailable";
inline constexpr char thermalPressure[] = "thermal_pressure";
inline constexpr char lowPowerMode[] = "low_power_mode";

// Why it is not prevented, or no longer.
inline constexpr char manualExpired[] = "manual_expired";
inline constexpr char notArmed[] = "not_armed";
inline constexpr char userStop[] = "user_stop";
inline constexpr char repair[] = "repair";

// Why a power operation was made.
inline constexpr char enablePrefix[] = "enable:";
inline constexpr char releasePrefix[] = "release:";
inline constexpr char closedLidRelease[] = "closed_lid_release";
inline constexpr char daemonStopping[] = "daemon_stopping";
inline constexpr char unconfirmed[] = "unconfirmed";
inline constexpr char unknown[] = "unknown";

}  // namespace reason

/// The limits within which the machine may be kept awake. Kept as given: nothing is clamped.
///
/// The library has no policy of its own, the programs choose theirs: a limit that is not given
/// forbids nothing.
struct SafetyPolicy {
  /// Longer than any machine runs, in minutes or seconds, and little enough to be counted with.
  static constexpr std::int64_t noLimit = std::numeric_limits<std::int32_t>::max();
  /// How long a machine with its lid closed may be seriously hot: the length of a short burst of
  /// work, and less than a bag takes to heat it up to what is critical.
  static constexpr std::int64_t seriousHeatGraceSeconds = 120;

  /// Percent; on battery, a charge at or below this forbids keeping awake (100 or more: always).
  std::int64_t minimumBatteryPercent = -1;
  /// Minutes; the longest timer that one request may ask for. A longer one is refused.
  std::int64_t maxManualDurationMinutes = noLimit;
  /// Seconds; how long after the lid was opened that counts as a reason of its own.
  std::int64_t lidOpenGraceSeconds = 0;
  /// Seconds; how long the default route may be missing while a timer runs (negative: not at all).
  std::int64_t noRouteGraceSeconds = noLimit;
  /// Whether heat forbids keeping awake: critical at once, serious after its grace with the lid
  /// closed. A held lock keeps some machines from saving themselves.
  bool stopAtThermalPressure = false;
  /// Whether the system's low power mode forbids it on battery.
  bool stopInLowPowerMode = false;

  bool operator==(const SafetyPolicy&) const = default;
};

void encode(JSONWriter& to, const SafetyPolicy& policy);

/// Requires the four limits; a switch that is missing is off.
void decode(const JSONReader& from, SafetyPolicy& policy);

/// The verdict of one instant, in the words above.
struct PowerDecision {
  bool shouldPreventSleep = false;
  std::vector<std::string> reasons;       ///< why sleep is prevented; empty when it is not
  std::vector<std::string> safetyBlocks;  ///< safety rules that forbid it, in the order of testing
  std::optional<std::string> stopReason;  ///< why it is not prevented; absent when it is

  /// Whether that safety rule is among those that forbid it.
  bool isVetoedBy(std::string_view rule) const;

  bool operator==(const PowerDecision&) const = default;
};

void encode(JSONWriter& to, const PowerDecision& decision);
void decode(const JSONReader& from, PowerDecision& decision);

/// Decides, at the instant of a snapshot, whether the machine is to be kept awake. Pure.
///
/// Only the manual timer keeps it awake (agents' hooks keep extending that), and a safety block
/// always wins over the timer.
struct PowerDecisionEngine {
  SafetyPolicy policy;

  /// The verdict for `state` at `snapshot.now`. `agents` take no part in it: an agent that merely
  /// sits there is no reason to stay awake.
  PowerDecision evaluate(const NODOState& state, const std::vector<AgentProcess>& agents,
                         const SystemSnapshot& snapshot) const;

  bool operator==(const PowerDecisionEngine&) const = default;
};

}  // namespace nodo
