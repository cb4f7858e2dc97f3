#pragma once

/// The words by which decisions, the state's audit, reports and the doctor name their reasons. They
/// are stored in files and searched for by scripts, so they never change.
namespace nodo::reason {

// Why sleep is prevented.
inline constexpr char manualTimer[] = "manual_timer";
inline constexpr char manualLease[] = "manual_lease";  // a timer that an agent extended
inline constexpr char lidOpenGrace[] = "lid_open_grace";

// Which safety rule forbids it.
inline constexpr char batteryBelowThreshold[] = "battery_below_threshold";
inline constexpr char networkUnavailable[] = "network_unavailable";

// Why it is not prevented, or no longer.
inline constexpr char manualExpired[] = "manual_expired";
inline constexpr char notArmed[] = "not_armed";
inline constexpr char userStop[] = "user_stop";
inline constexpr char repair[] = "repair";

// Why a power operation was made.
inline constexpr char enablePrefix[] = "enable:";
inline constexpr char releasePrefix[] = "release:";
inline constexpr char closedLidRelease[] = "closed_lid_release";
inline constexpr char unknown[] = "unknown";

}  // namespace nodo::reason
