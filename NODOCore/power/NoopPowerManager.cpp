#include <NODOCore/power/NoopPowerManager.h>

namespace nodo {

PowerOperationResult NoopPowerManager::setSleepDisabled(bool disabled) {
  return {disabled, true, std::nullopt, std::nullopt, "", ""};
}

}  // namespace nodo
