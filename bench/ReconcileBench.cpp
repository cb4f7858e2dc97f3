#include <NODOCore/control/DaemonSettings.h>
#include <NODOCore/control/NODOController.h>
#include <NODOCore/sensing/ProcessListing.h>
#include <NODOCore/sensing/SystemSnapshot.h>
#include <testing/FakePowerManager.h>
#include <testing/ScriptedCommandRunner.h>
#include <testing/TemporaryFolder.h>

#include <memory>

#include <benchmark/benchmark.h>

#include <bench/CommandLines.h>
#include <bench/SampleState.h>

namespace nodo::bench {
namespace {

constexpr Date now = dateFromSeconds(1769847300);
constexpr std::size_t processes = 500;

std::shared_ptr<const CommandRunning> toolsOnMains() {
  auto tools = std::make_shared<test::ScriptedCommandRunner>();
  tools->answer("/usr/bin/pmset -g batt",
                "Now drawing from 'AC Power'\n"
                " -InternalBattery-0 (id=4522083)\t85%; charging; (no estimate) present: true\n");
  tools->answer("/sbin/route -n get default",
                "   route to: default\ndestination: default\n    gateway: 192.168.1.1\n");
  tools->answer("/usr/sbin/ioreg -r -k AppleClamshellState -d 4",
                "  \"AppleClamshellState\" = No\n");
  return tools;
}

NODOController controllerOn(const test::TemporaryFolder& folder) {
  return {.store = {folder.path()},
          .detector = {},
          .processListing = std::make_shared<StaticProcessListing>(CommandLines(3).take(processes)),
          .snapshotProvider = std::make_shared<MacSystemSnapshotProvider>(toolsOnMains()),
          .decisionEngine = {defaultPolicy}};
}

// What the daemon does once a minute while it holds the lock: nothing changes, nothing is written.
void BM_ReconcileWithoutChange(benchmark::State& state) {
  const test::TemporaryFolder folder;
  NODOController controller = controllerOn(folder);
  test::FakePowerManager power;
  controller.store.memory = std::make_shared<StateStore::Memory>();
  controller.store.save(fullState(now));
  controller.reconcile(power, true, now);
  for (auto _ : state) {
    if (controller.reconcile(power, true, now).stateChanged) {
      state.SkipWithError("the state changed");
    }
  }
}

BENCHMARK(BM_ReconcileWithoutChange)->UseRealTime()->Unit(benchmark::kMillisecond);

// The lock is taken and, in the next pass, released: two passes that both write.
void BM_ReconcileWithLockChanges(benchmark::State& state) {
  const test::TemporaryFolder folder;
  const NODOController controller = controllerOn(folder);
  test::FakePowerManager power;
  NODOState held = fullState(now);
  held.ownsSleepDisable = false;
  for (auto _ : state) {
    state.PauseTiming();
    controller.store.save(held);
    state.ResumeTiming();
    const bool taken = controller.reconcile(power, false, now).operation.has_value();
    const bool released =
        controller.reconcile(power, true, now + Seconds(7200)).operation.has_value();
    if (!taken || !released) {
      state.SkipWithError("the lock was not taken and released");
    }
  }
}

BENCHMARK(BM_ReconcileWithLockChanges)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace nodo::bench
