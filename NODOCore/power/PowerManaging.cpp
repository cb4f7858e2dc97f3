#include <NODOCore/power/PowerManaging.h>

namespace nodo {

PowerOperationResult PowerManaging::requestSleepNow() {
  return {false, true, std::nullopt, std::nullopt, "", "", PowerOperationAction::sleepNow};
}

}  // namespace nodo
