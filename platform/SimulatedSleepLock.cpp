#include <NODOCore/power/PowerManaging.h>
#include <platform/DaemonMachine.h>

namespace nodo {

SleepLock simulatedSleepLock() {
  return {.manager = std::make_unique<NoopPowerManager>(),
          .isHeld = [] { return std::optional(false); },
          .diesWithProcess = true,
          .isSimulated = true};
}

}  // namespace nodo
