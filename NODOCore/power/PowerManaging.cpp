#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/power/PowerManaging.h>

#include <utility>

namespace nodo {

PowerOperationAction powerOperationAction(bool disabled) {
  return disabled ? PowerOperationAction::disableSleep : PowerOperationAction::enableSleep;
}

PowerOperationResult::PowerOperationResult(bool requestedSleepDisabled, bool dryRun,
                                           std::optional<std::string> executedCommand,
                                           std::optional<std::int32_t> exitCode,
                                           std::string standardOutput, std::string standardError,
                                           std::optional<PowerOperationAction> action)
    : action(action.value_or(powerOperationAction(requestedSleepDisabled))),
      requestedSleepDisabled(requestedSleepDisabled),
      dryRun(dryRun),
      executedCommand(std::move(executedCommand)),
      exitCode(exitCode),
      standardOutput(std::move(standardOutput)),
      standardError(std::move(standardError)) {}

bool PowerOperationResult::succeeded() const {
  return !dryRun && exitCode == 0;
}

// Records from before there was an action do not hold one.
static void deriveMissing(const ObjectDecoder& fields, PowerOperationResult& result) {
  if (!fields.has("action")) {
    result.action = powerOperationAction(result.requestedSleepDisabled);
  }
}

NODO_JSON_RECORD(PowerOperationResult, fields, result) {
  fields.defaulted("action", result.action);
  fields.required("requestedSleepDisabled", result.requestedSleepDisabled);
  fields.required("dryRun", result.dryRun);
  fields.optional("executedCommand", result.executedCommand);
  fields.optional("exitCode", result.exitCode);
  fields.defaulted("stdout", result.standardOutput);
  fields.defaulted("stderr", result.standardError);
}

PowerOperationResult PowerManaging::requestSleepNow() {
  return {false, true, std::nullopt, std::nullopt, "", "", PowerOperationAction::sleepNow};
}

PowerOperationResult NoopPowerManager::setSleepDisabled(bool disabled) {
  return {disabled, true, std::nullopt, std::nullopt, "", ""};
}

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
