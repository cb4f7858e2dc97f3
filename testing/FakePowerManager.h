#pragma once

#include <NODOCore/power/PowerManaging.h>

#include <cstdint>
#include <functional>
#include <vector>

namespace nodo::test {

/// A machine's sleep lock in memory, with knobs for every way in which switching it can fail. Not
/// thread-safe.
class FakePowerManager : public PowerManaging {
 public:
  enum class Behaviour {
    works,
    fails,      ///< the tool runs and exits 1; nothing changes
    simulates,  ///< a dry run; nothing changes
    cannotRun,  ///< the tool cannot be started (std::system_error, ENOENT)
  };

  Behaviour behaviour = Behaviour::works;
  /// Called before each operation takes effect, e.g. to look at what is on disk by then.
  std::function<void(PowerOperationAction)> beforeOperation;

  bool isSleepDisabled = false;  ///< the lock as the machine has it
  std::int64_t sleepRequests = 0;
  std::vector<PowerOperationAction> operations;  ///< all that was asked for, failures included

  PowerOperationResult setSleepDisabled(bool disabled) override;
  PowerOperationResult requestSleepNow() override;

 private:
  PowerOperationResult perform(bool disabled, PowerOperationAction action,
                               const std::function<void()>& effect);
};

}  // namespace nodo::test
