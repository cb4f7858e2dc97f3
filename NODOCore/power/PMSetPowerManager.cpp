#include <NODOCore/power/PMSetPowerManager.h>

#include <utility>

namespace nodo {

PMSetPowerManager::PMSetPowerManager(std::shared_ptr<const CommandRunning> runner, bool dryRun)
    : runner(std::move(runner)), dryRun(dryRun) {}

PowerOperationResult PMSetPowerManager::setSleepDisabled(bool disabled) {
  return runPMSet({"-a", "disablesleep", disabled ? "1" : "0"}, disabled,
                  powerOperationAction(disabled));
}

PowerOperationResult PMSetPowerManager::requestSleepNow() {
  return runPMSet({"sleepnow"}, false, PowerOperationAction::sleepNow);
}

PowerOperationResult PMSetPowerManager::runPMSet(const std::vector<std::string>& arguments,
                                                 bool disabled, PowerOperationAction action) const {
  const std::string tool = "/usr/bin/pmset";
  std::string commandText = tool;
  for (const std::string& argument : arguments) {
    commandText += " " + argument;
  }
  if (dryRun) {
    return {disabled, true, commandText, std::nullopt, "", "", action};
  }
  CommandOutput output = runner->run(tool, arguments);
  return {disabled,
          false,
          commandText,
          output.exitCode,
          std::move(output.standardOutput),
          std::move(output.standardError),
          action};
}

}  // namespace nodo
