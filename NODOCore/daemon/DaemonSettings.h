#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/control/PowerDecision.h>

namespace nodo {

/// The limits that the programs keep to unless told otherwise: a fifth of the battery as a reserve,
/// half a day at most for one request (an agent left alone overnight), a minute to sit down again
/// after opening the lid, five minutes for a network to come back. Heat ends it, while low power
/// mode is a person's wish to save and no danger.
inline constexpr SafetyPolicy defaultPolicy{.minimumBatteryPercent = 20,
                                            .maxManualDurationMinutes = 720,
                                            .lidOpenGraceSeconds = 60,
                                            .noRouteGraceSeconds = 300,
                                            .stopAtThermalPressure = true,
                                            .stopInLowPowerMode = false};

/// What an administrator decides of the daemon, and what holds where nobody did.
struct DaemonSettings {
  SafetyPolicy policy = defaultPolicy;
  Seconds releaseGrace{1};  ///< how long after the end of a timer the release is due
  /// Whether the sessions are locked when the lid is closed under a held lock.
  bool lockOnLidClose = true;
  /// Whether the lock keeps the display on, too.
  bool keepDisplayOn = false;
  /// Whether an agent's tool that works beyond the timer's end extends it.
  bool longTools = true;

  bool operator==(const DaemonSettings&) const = default;
};

}  // namespace nodo
