#pragma once

#include <NODOCore/power/CommandRunning.h>
#include <NODOCore/power/PowerManaging.h>

#include <memory>
#include <string>
#include <vector>

namespace nodo {

/// Drives `/usr/bin/pmset`, which needs root to change anything (it exits non-zero otherwise).
class PMSetPowerManager : public PowerManaging {
 public:
  std::shared_ptr<const CommandRunning> runner;
  bool dryRun;  ///< report the command lines without running them

  PMSetPowerManager(std::shared_ptr<const CommandRunning> runner, bool dryRun);

  /// Throws std::system_error when pmset cannot be started; so does `requestSleepNow`.
  PowerOperationResult setSleepDisabled(bool disabled) override;
  PowerOperationResult requestSleepNow() override;

 private:
  PowerOperationResult runPMSet(const std::vector<std::string>& arguments, bool disabled,
                                PowerOperationAction action) const;
};

}  // namespace nodo
