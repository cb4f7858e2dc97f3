#include <NODOCore/base/Text.h>
#include <NODOCore/daemon/SleepLock.h>

#include <string_view>
#include <utility>

#include <fmt/format.h>

namespace nodo {
namespace {

struct ActionWords {
  std::string_view done;
  std::string_view attempted;
};

ActionWords wordsOf(PowerOperationAction action) {
  switch (action) {
    case PowerOperationAction::disableSleep:
      return {"sleep lock switched on", "switching the sleep lock on"};
    case PowerOperationAction::enableSleep:
      return {"sleep lock switched off", "switching the sleep lock off"};
    case PowerOperationAction::sleepNow:
      break;
  }
  return {"asked for sleep", "asking for sleep"};
}

std::string trouble(const PowerOperationResult& operation) {
  const std::string_view attempted = wordsOf(operation.action).attempted;
  if (operation.dryRun) {
    return fmt::format("{} is only simulated", attempted);
  }
  const std::string exit =
      operation.exitCode ? fmt::format("exit {}", *operation.exitCode) : "no exit status";
  const std::string_view said = trimmed(operation.standardError);
  return fmt::format("{} failed ({}){}{}", attempted, exit, said.empty() ? "" : ": ", said);
}

}  // namespace

SleepLock simulatedSleepLock() {
  return {.manager = std::make_unique<NoopPowerManager>(),
          .isHeld = [] { return std::optional(false); },
          .diesWithProcess = true,
          .isSimulated = true};
}

WatchedLock::WatchedLock(SleepLock lock) : lock_(std::move(lock)) {
  if (lock_.diesWithProcess || lock_.isSimulated) {
    isHeld_ = false;
  }
}

PowerOperationResult WatchedLock::setSleepDisabled(bool disabled) {
  PowerOperationResult result = lock_.manager->setSleepDisabled(disabled);
  operations_.push_back({result, std::exchange(reason_, {})});
  if (result.succeeded()) {
    isHeld_ = disabled;
    wasTaken_ = disabled;
  }
  return result;
}

PowerOperationResult WatchedLock::requestSleepNow() {
  PowerOperationResult result = lock_.manager->requestSleepNow();
  operations_.push_back({result, std::exchange(reason_, {})});
  return result;
}

std::optional<bool> WatchedLock::askMachine() {
  const std::optional<bool> live = lock_.isHeld();
  if (live) {
    isHeld_ = live;
    wasTaken_ = wasTaken_ && *live;
  }
  return live;
}

std::vector<LockOperation> WatchedLock::takeOperations() {
  return std::exchange(operations_, {});
}

void OperationLog::add(const LockOperation& operation, const std::string& requester) {
  const PowerOperationResult& result = operation.result;
  if (!result.succeeded()) {
    addTrouble(trouble(result));
    return;
  }
  lastTrouble_.clear();
  std::string why = operation.reason;
  if (result.action == PowerOperationAction::disableSleep && !requester.empty()) {
    why += (why.empty() ? "" : ", ") + requester;
  }
  log_(fmt::format("{}{}{}{}", wordsOf(result.action).done, why.empty() ? "" : " (", why,
                   why.empty() ? "" : ")"));
}

void OperationLog::addTrouble(const std::string& line) {
  if (line != lastTrouble_) {
    log_(line);
    lastTrouble_ = line;
  }
}

}  // namespace nodo
