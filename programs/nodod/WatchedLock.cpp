#include <programs/nodod/WatchedLock.h>

#include <utility>

namespace nodo::nodod {

WatchedLock::WatchedLock(SleepLock lock) : lock_(std::move(lock)) {
  if (lock_.diesWithProcess || lock_.isSimulated) {
    isHeld_ = false;
  }
}

PowerOperationResult WatchedLock::setSleepDisabled(bool disabled) {
  PowerOperationResult result = lock_.manager->setSleepDisabled(disabled);
  operations_.push_back(result);
  if (result.succeeded()) {
    isHeld_ = disabled;
    wasTaken_ = disabled;
  }
  return result;
}

PowerOperationResult WatchedLock::requestSleepNow() {
  PowerOperationResult result = lock_.manager->requestSleepNow();
  operations_.push_back(result);
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

std::vector<PowerOperationResult> WatchedLock::takeOperations() {
  return std::exchange(operations_, {});
}

}  // namespace nodo::nodod
