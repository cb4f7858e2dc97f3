#include <NODOCore/power/ChildProcess.h>
#include <NODOCore/sensing/AgentDetector.h>
#include <platform/linux/senses/ProcProcessListing.h>
#include <testing/TemporaryFolder.h>

#include <benchmark/benchmark.h>

#include <bench/Spawn.h>

namespace nodo::bench {
namespace {

constexpr std::size_t idleProcesses = 500;

// Made once for both benchmarks, as they are interleaved.
void needIdleProcesses() {
  static const test::TemporaryFolder folder;
  static const IdleProcesses processes(folder.path(), idleProcesses);
}

void BM_ListAndClassifyProcesses(benchmark::State& state) {
  needIdleProcesses();
  const ProcProcessListing listing;
  const AgentDetector detector;
  for (auto _ : state) {
    benchmark::DoNotOptimize(detector.detect(listing));
  }
  state.counters["processes"] = static_cast<double>(listing.listProcesses().size());
}

BENCHMARK(BM_ListAndClassifyProcesses)->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_RunPs(benchmark::State& state) {
  needIdleProcesses();
  for (auto _ : state) {
    const EndedProcess ps =
        runToEnd("/bin/ps", {"-axo", "pid=,ppid=,comm=,command="}, std::nullopt);
    benchmark::DoNotOptimize(ps.standardOutput.data());
    if (ps.exitCode != 0) {
      state.SkipWithError("ps failed");
    }
  }
}

BENCHMARK(BM_RunPs)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace nodo::bench
