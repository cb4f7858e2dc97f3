#include <NODOCore/daemon/PMSetSleepLock.h>
#include <NODOCore/power/CommandRunning.h>
#include <NODOCore/state/StateStore.h>
#include <platform/DaemonMachine.h>
#include <platform/macos/MacDaemonLoop.h>
#include <platform/macos/SecurityCodeSigning.h>

#include <stdexcept>

namespace nodo {
namespace {

// Where a daemon notes that it may have left the lock on, which outlives it.
constexpr char pmsetLockMark[] = "/var/db/com.quintavel.nodo.sleep-lock";

SleepLock pmsetLock() {
  SleepLock lock = pmsetSleepLock(std::make_shared<ProcessCommandRunner>(toolTimeLimit));
  lock.mark = pmsetLockMark;
  return lock;
}

}  // namespace

HostMachine daemonMachine([[maybe_unused]] PowerChoice choice) {
  return hostMachine();
}

SleepLock makeSleepLock(PowerChoice choice) {
  switch (choice) {
    case PowerChoice::automatic:
    case PowerChoice::pmset:
      return pmsetLock();
    case PowerChoice::simulated:
      return simulatedSleepLock();
    case PowerChoice::logind:
      break;
  }
  throw std::runtime_error("this system has no logind; it offers auto, pmset and simulated");
}

std::filesystem::path settingsFile() {
  return "/Library/Application Support/nodo/nodod.toml";
}

std::filesystem::path daemonStateFolder(const Environment& environment,
                                        [[maybe_unused]] const std::optional<std::string>& bus) {
  return StateStore::daemon(environment).directory;
}

std::unique_ptr<DaemonLoop> makeDaemonLoop(const std::optional<std::string>& /*bus*/,
                                           const DaemonLog& /*log*/) {
  return std::make_unique<MacDaemonLoop>(std::make_shared<SecurityCodeSigning>());
}

}  // namespace nodo
