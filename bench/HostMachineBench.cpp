#include <NODOCore/control/DaemonSettings.h>
#include <NODOCore/control/NODOController.h>
#include <platform/DaemonMachine.h>
#include <platform/HostMachine.h>
#include <testing/FakePowerManager.h>
#include <testing/TemporaryFolder.h>

#include <memory>
#include <optional>

#include <benchmark/benchmark.h>

#include <bench/SampleState.h>

// A pass of the daemon on the machine that this runs on, and what it is made of. With a logind of
// one's own: tests/e2e/with-logind nodo_bench --benchmark_filter=OnThisMachine
namespace nodo::bench {
namespace {

constexpr Date now = dateFromSeconds(1769847300);

NODOController controllerOn(const test::TemporaryFolder& folder) {
  const HostMachine machine = hostMachine();
  SafetyPolicy policy = defaultPolicy;
  policy.minimumBatteryPercent = 0;  // whatever battery this machine has
  return {.store = {folder.path()},
          .detector = {},
          .processListing = machine.processListing,
          .snapshotProvider = machine.snapshotProvider,
          .decisionEngine = {policy}};
}

// As once a minute while the lock is held: the lock is asked for, nothing changes.
void BM_ReconcileOnThisMachine(benchmark::State& state) {
  const test::TemporaryFolder folder;
  NODOController controller = controllerOn(folder);
  controller.store.memory = std::make_shared<StateStore::Memory>();
  const SleepLock lock = makeSleepLock(PowerChoice::automatic);
  test::FakePowerManager power;
  controller.store.save(fullState(now));
  for (auto _ : state) {
    benchmark::DoNotOptimize(controller.reconcile(power, lock.isHeld(), now));
  }
}

BENCHMARK(BM_ReconcileOnThisMachine)->UseRealTime()->Unit(benchmark::kMicrosecond);

void BM_AskForTheLockOnThisMachine(benchmark::State& state) {
  const SleepLock lock = makeSleepLock(PowerChoice::automatic);
  for (auto _ : state) {
    benchmark::DoNotOptimize(lock.isHeld());
  }
}

BENCHMARK(BM_AskForTheLockOnThisMachine)->UseRealTime()->Unit(benchmark::kMicrosecond);

void BM_DetectAgentsOnThisMachine(benchmark::State& state) {
  const HostMachine machine = hostMachine();
  for (auto _ : state) {
    benchmark::DoNotOptimize(AgentDetector().detect(*machine.processListing));
  }
}

BENCHMARK(BM_DetectAgentsOnThisMachine)->UseRealTime()->Unit(benchmark::kMicrosecond);

void BM_TakeSnapshotOnThisMachine(benchmark::State& state) {
  const HostMachine machine = hostMachine();
  for (auto _ : state) {
    benchmark::DoNotOptimize(machine.snapshotProvider->snapshot(now));
  }
}

BENCHMARK(BM_TakeSnapshotOnThisMachine)->UseRealTime()->Unit(benchmark::kMicrosecond);

void BM_LoadStateOnThisMachine(benchmark::State& state) {
  const test::TemporaryFolder folder;
  const StateStore store{folder.path()};
  store.save(fullState(now));
  for (auto _ : state) {
    benchmark::DoNotOptimize(store.load());
  }
}

BENCHMARK(BM_LoadStateOnThisMachine)->UseRealTime()->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace nodo::bench
