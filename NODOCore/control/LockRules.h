#pragma once

#include <NODOCore/sensing/SystemSnapshot.h>

#include <cstddef>

/// What holds whoever switches the sleep lock: a pass, or the daemon when passes fail.
namespace nodo {

/// How many power operations the state's history keeps.
inline constexpr std::size_t mostPowerOperations = 20;

/// Whether a release has to be followed by a request for sleep. With the lid closed nobody would
/// put the machine to sleep again, and on battery it would run empty in its bag.
inline bool mustSleepAfterRelease(const SystemSnapshot& snapshot) {
  return snapshot.lidClosed == true && snapshot.powerSource == PowerSource::battery;
}

}  // namespace nodo
