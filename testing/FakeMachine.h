#pragma once

#include <NODOCore/control/NODOController.h>
#include <NODOCore/sensing/ProcessListing.h>
#include <NODOCore/sensing/SystemSnapshot.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <vector>

namespace nodo::test {

/// The senses of a machine that a test sets as it likes, with a switch to make them fail. Not
/// thread-safe.
class FakeMachine : public ProcessListing, public SystemSnapshotProviding {
 public:
  std::vector<RunningProcess> processes;
  std::map<std::int32_t, Seconds> timesUsed;  ///< of the processor, by those that used any
  PowerSource powerSource = PowerSource::ac;
  std::optional<std::int64_t> batteryPercent;
  std::optional<bool> defaultRouteAvailable = true;
  std::optional<bool> lidClosed;
  std::optional<ThermalPressure> thermalPressure;
  std::optional<HotZone> hotZone;
  std::optional<bool> lowPowerMode;
  bool listingFails = false;   ///< NODOError::processListingFailed("broken")
  bool snapshotFails = false;  ///< std::system_error, ENOENT
  mutable int listings = 0;
  mutable int snapshotsTaken = 0;

  std::vector<RunningProcess> listProcesses() const override;
  std::map<std::int32_t, Seconds> processorTimes(
      const std::vector<std::int32_t>& pids) const override;
  SystemSnapshot snapshot(Date now) const override;

  /// Adds a running Claude Code.
  void startAgent(std::int32_t pid);
};

/// A controller over `store` that looks at `machine`.
NODOController controllerFor(const std::shared_ptr<FakeMachine>& machine, StateStore store,
                             const SafetyPolicy& policy);

}  // namespace nodo::test
