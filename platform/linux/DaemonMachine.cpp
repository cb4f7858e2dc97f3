#include <NODOCore/base/Environment.h>
#include <NODOCore/daemon/PMSetSleepLock.h>
#include <NODOCore/power/CommandRunning.h>
#include <NODOCore/sensing/ProcessListing.h>
#include <NODOCore/sensing/SystemSnapshot.h>
#include <NODOCore/state/StateStore.h>
#include <platform/DaemonMachine.h>
#include <platform/linux/bus/BusConnection.h>
#include <platform/linux/logind/Logind.h>
#include <platform/linux/logind/LogindPowerManager.h>
#include <platform/linux/news/LinuxDaemonLoop.h>

#include <stdexcept>
#include <system_error>
#include <utility>

namespace nodo {
namespace {

// Where a daemon notes that it may have left the lock of pmset on, which outlives it.
constexpr char pmsetLockMark[] = "/var/lib/com.quintavel.nodo.sleep-lock";

SleepLock logindLock() {
  try {
    Logind({.connecting = startPatience, .call = startPatience}).blockInhibited();
  } catch (const BusTimeout& error) {
    throw BusTimeout(std::string("systemd-logind cannot be asked: ") + error.what());
  }
  auto manager = std::make_unique<LogindPowerManager>();
  LogindPowerManager* const logind = manager.get();
  return {.manager = std::move(manager),
          .isHeld = [logind] { return logind->isHeld(); },
          .diesWithProcess = true,
          .isSimulated = false,
          .setTerms = [logind](const LockTerms& terms) { logind->setTerms(terms); },
          .lockSessions = [logind] { logind->lockSessions(); }};
}

// No Linux has the tools of macOS by itself. Stand-ins for them let the daemon be tried with a lock
// that outlives it.
SleepLock pmsetLock() {
  std::error_code ignored;
  if (!std::filesystem::exists("/usr/bin/pmset", ignored)) {
    throw std::runtime_error("this system has no pmset; it offers auto, logind and simulated");
  }
  SleepLock lock = pmsetSleepLock(std::make_shared<ProcessCommandRunner>(toolTimeLimit));
  lock.mark = pmsetLockMark;
  return lock;
}

bool hasSystemBus() {
  try {
    openBus(systemBus, BusDescriptors::refused, BusClock::now() + startPatience);
    return true;
  } catch (const BusTimeout&) {
    throw;
  } catch (const BusError&) {
    return false;
  }
}

bool isSessionBus(const std::optional<std::string>& bus) {
  return bus ? *bus == sessionBus : !hasSystemBus();
}

}  // namespace

SleepLock makeSleepLock(PowerChoice choice) {
  switch (choice) {
    case PowerChoice::automatic:
      try {
        return logindLock();
      } catch (const BusTimeout&) {
        throw;
      } catch (const BusError&) {
        return simulatedSleepLock();
      }
    case PowerChoice::logind:
      return logindLock();
    case PowerChoice::simulated:
      return simulatedSleepLock();
    case PowerChoice::pmset:
      break;
  }
  return pmsetLock();
}

HostMachine daemonMachine(PowerChoice choice) {
  HostMachine machine = hostMachine();
  if (choice == PowerChoice::pmset) {
    machine.processListing = std::make_shared<PSProcessListing>(toolTimeLimit);
    machine.snapshotProvider = std::make_shared<MacSystemSnapshotProvider>(
        std::make_shared<ProcessCommandRunner>(toolTimeLimit));
  }
  return machine;
}

std::filesystem::path daemonStateFolder(const Environment& environment,
                                        const std::optional<std::string>& bus) {
  std::filesystem::path usual = StateStore::daemon(environment).directory;
  std::error_code ignored;
  if (nonEmptyValue(environment, "NODO_STATE_DIR") ||
      std::filesystem::is_directory(usual, ignored)) {
    return usual;
  }
  if (const auto given = nonEmptyValue(environment, "STATE_DIRECTORY")) {
    // A list when the unit names several.
    return given->substr(0, given->find(':'));
  }
  if (!isSessionBus(bus)) {
    return "/var/lib/nodo";
  }
  const auto home = nonEmptyValue(environment, "HOME");
  if (!home) {
    throw std::runtime_error("no folder for the state: neither NODO_STATE_DIR nor HOME is set");
  }
  return std::filesystem::path(*home) / ".nodo" / "daemon";
}

std::filesystem::path settingsFile() {
  return "/etc/nodo/nodod.toml";
}

std::unique_ptr<DaemonLoop> makeDaemonLoop(const std::optional<std::string>& bus,
                                           const DaemonLog& log) {
  return std::make_unique<LinuxDaemonLoop>(bus, log);
}

}  // namespace nodo
