#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/power/PowerOperationResult.h>

#include <utility>

namespace nodo {
namespace {

template <class Fields, class Result>
void describe(Fields& fields, Result& result) {
  fields.defaulted("action", result.action);
  fields.required("requestedSleepDisabled", result.requestedSleepDisabled);
  fields.required("dryRun", result.dryRun);
  fields.optional("executedCommand", result.executedCommand);
  fields.optional("exitCode", result.exitCode);
  fields.defaulted("stdout", result.standardOutput);
  fields.defaulted("stderr", result.standardError);
}

}  // namespace

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

JSONValue encode(const PowerOperationResult& result) {
  ObjectEncoder fields;
  describe(fields, result);
  return fields.finish();
}

void decode(const JSONReader& from, PowerOperationResult& result) {
  ObjectDecoder fields(from);
  describe(fields, result);
  if (!fields.has("action")) {
    result.action = powerOperationAction(result.requestedSleepDisabled);
  }
}

}  // namespace nodo
