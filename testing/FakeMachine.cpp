#include <NODOCore/base/Errors.h>
#include <testing/FakeMachine.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace nodo::test {

std::vector<RunningProcess> FakeMachine::listProcesses() const {
  ++listings;
  if (listingFails) {
    throw NODOError::processListingFailed("broken");
  }
  return processes;
}

std::map<std::int32_t, Seconds> FakeMachine::processorTimes(
    const std::vector<std::int32_t>& pids) const {
  std::map<std::int32_t, Seconds> known;
  for (const std::int32_t pid : pids) {
    if (const auto found = timesUsed.find(pid); found != timesUsed.end()) {
      known.insert(*found);
    }
  }
  return known;
}

SystemSnapshot FakeMachine::snapshot(Date now) const {
  ++snapshotsTaken;
  if (snapshotFails) {
    throw std::system_error(ENOENT, std::generic_category(), "Unable to run fake");
  }
  return {.now = now,
          .powerSource = powerSource,
          .batteryPercent = batteryPercent,
          .defaultRouteAvailable = defaultRouteAvailable,
          .lidClosed = lidClosed,
          .thermalPressure = thermalPressure,
          .hotZone = hotZone,
          .lowPowerMode = lowPowerMode};
}

void FakeMachine::startAgent(std::int32_t pid) {
  processes.push_back({.pid = pid, .ppid = 1, .executable = "claude", .command = "claude"});
}

NODOController controllerFor(const std::shared_ptr<FakeMachine>& machine, StateStore store,
                             const SafetyPolicy& policy) {
  return {.store = std::move(store),
          .detector = {},
          .processListing = machine,
          .snapshotProvider = machine,
          .decisionEngine = {policy}};
}

}  // namespace nodo::test
