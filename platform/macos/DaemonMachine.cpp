#include <NODOCore/diagnostics/SleepDiagnostics.h>
#include <NODOCore/power/CommandRunning.h>
#include <NODOCore/power/PowerManaging.h>
#include <NODOCore/state/StateStore.h>
#include <platform/DaemonMachine.h>
#include <platform/macos/MacDaemonLoop.h>
#include <platform/macos/SecurityCodeSigning.h>

#include <exception>
#include <stdexcept>

namespace nodo {
namespace {

std::optional<bool> liveSleepDisabled(const CommandRunning& runner) {
  try {
    const CommandOutput live = runner.run("/usr/bin/pmset", {"-g", "live"});
    return SleepDiagnosticsInspector::parse(live.standardOutput, "", Date()).sleepDisabled;
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

}  // namespace

SleepLock pmsetSleepLock(const std::shared_ptr<const CommandRunning>& runner) {
  return {.manager = std::make_unique<PMSetPowerManager>(runner, /*dryRun=*/false),
          .isHeld = [runner] { return liveSleepDisabled(*runner); },
          .diesWithProcess = false,
          .isSimulated = false};
}

SleepLock makeSleepLock(PowerChoice choice) {
  switch (choice) {
    case PowerChoice::automatic:
    case PowerChoice::pmset:
      return pmsetSleepLock(std::make_shared<ProcessCommandRunner>());
    case PowerChoice::simulated:
      return simulatedSleepLock();
    case PowerChoice::logind:
      break;
  }
  throw std::runtime_error("this system has no logind; it offers auto, pmset and simulated");
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
