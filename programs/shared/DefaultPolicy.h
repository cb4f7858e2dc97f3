#pragma once

#include <NODOCore/control/PowerDecision.h>

namespace nodo {

/// The limits that the programs keep to unless told otherwise: a fifth of the battery as a reserve,
/// half a day at most for one request (an agent left alone overnight), a minute to sit down again
/// after opening the lid, five minutes for a network to come back.
inline constexpr SafetyPolicy defaultPolicy{.minimumBatteryPercent = 20,
                                            .maxManualDurationMinutes = 720,
                                            .lidOpenGraceSeconds = 60,
                                            .noRouteGraceSeconds = 300};

}  // namespace nodo
