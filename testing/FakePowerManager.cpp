#include <testing/FakePowerManager.h>

#include <cerrno>
#include <system_error>

namespace nodo::test {

PowerOperationResult FakePowerManager::setSleepDisabled(bool disabled) {
  return perform(disabled, powerOperationAction(disabled),
                 [this, disabled] { isSleepDisabled = disabled; });
}

PowerOperationResult FakePowerManager::requestSleepNow() {
  return perform(false, PowerOperationAction::sleepNow, [this] { ++sleepRequests; });
}

PowerOperationResult FakePowerManager::perform(bool disabled, PowerOperationAction action,
                                               const std::function<void()>& effect) {
  operations.push_back(action);
  if (beforeOperation) {
    beforeOperation(action);
  }
  const std::string command = "fake " + std::string(rawValue(action));
  switch (behaviour) {
    case Behaviour::cannotRun:
      throw std::system_error(ENOENT, std::generic_category(), "Unable to run fake");
    case Behaviour::simulates:
      return {disabled, true, command, std::nullopt, "", "", action};
    case Behaviour::fails:
      return {disabled, false, command, 1, "", "refused\n", action};
    case Behaviour::works:
      break;
  }
  effect();
  return {disabled, false, command, 0, "", "", action};
}

}  // namespace nodo::test
