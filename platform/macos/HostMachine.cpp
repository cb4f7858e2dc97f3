#include <NODOCore/diagnostics/SleepDiagnostics.h>
#include <NODOCore/power/CommandRunning.h>
#include <NODOCore/sensing/ProcessListing.h>
#include <NODOCore/sensing/SystemSnapshot.h>
#include <platform/HostMachine.h>
#include <platform/macos/ProcessInfo.h>

namespace nodo {

HostMachine hostMachine([[maybe_unused]] std::chrono::milliseconds patience) {
  const auto runner = std::make_shared<ProcessCommandRunner>(toolTimeLimit);
  const SleepDiagnosticsInspector inspector{runner};
  return {
      .processListing = std::make_shared<PSProcessListing>(toolTimeLimit),
      .snapshotProvider = std::make_shared<MacSystemSnapshotProvider>(runner, readMachineStrain),
      .sleepDiagnostics = [inspector](Date now) {
        return SleepDiagnosticsReading{
            .report = inspector.report(now), .lockHolder = std::nullopt, .hint = std::nullopt};
      }};
}

}  // namespace nodo
