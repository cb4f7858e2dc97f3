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
  const auto listing = std::make_shared<PSProcessListing>(toolTimeLimit);
  return {
      .processListing = listing,
      .snapshotProvider = std::make_shared<MacSystemSnapshotProvider>(runner, readMachineStrain),
      .sleepDiagnostics =
          [inspector](Date now) {
            return SleepDiagnosticsReading{
                .report = inspector.report(now), .lockHolder = std::nullopt, .hint = std::nullopt};
          },
      .processorTimes =
          [listing](const std::vector<std::int32_t>& pids) {
            return listing->processorTimes(pids);
          }};
}

}  // namespace nodo
