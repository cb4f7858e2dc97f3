#pragma once

#include <NODOCore/base/Date.h>
#include <programs/nodoctl/commands/Health.h>

/// What a look may find, for the tests of what is shown of it.
namespace nodo::menu::sample {

inline constexpr Date now = dateFromSeconds(1'769'847'300);  // 2026-01-31 08:15 UTC

/// Nothing keeps the computer awake, and all is set up.
nodoctl::HealthFacts idle();

/// Codex has asked for it, `minutes` are left, and the lock is there.
nodoctl::HealthFacts keptAwake(double minutes = 125);

/// The same, but that the battery is low and the lock released.
nodoctl::HealthFacts vetoed();

/// The daemon cannot be asked.
nodoctl::HealthFacts withoutDaemon(bool isBroken = false);

}  // namespace nodo::menu::sample
