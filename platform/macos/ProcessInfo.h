#pragma once

#include <NODOCore/sensing/SystemSnapshot.h>

namespace nodo {

/// What this Mac tells of its heat and its low power mode, without asking another process. A state
/// that is none of those that are known is absent.
MachineStrain readMachineStrain();

}  // namespace nodo
