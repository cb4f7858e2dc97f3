#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/state/StateStore.h>
#include <testing/TemporaryFolder.h>

#include <benchmark/benchmark.h>
#include <nlohmann/json.hpp>

#include <bench/SampleState.h>

namespace nodo::bench {
namespace {

constexpr Date wholeMinute = dateFromSeconds(1769847300);

void BM_LoadAndSaveState(benchmark::State& state) {
  const test::TemporaryFolder folder;
  const StateStore store{folder.path()};
  store.save(fullState(wholeMinute));
  if (store.load() != fullState(wholeMinute)) {
    state.SkipWithError("the state does not read back equal");
  }
  for (auto _ : state) {
    store.save(store.load());
  }
  state.counters["bytes"] = static_cast<double>(folder.read("state.json").size());
}

BENCHMARK(BM_LoadAndSaveState)->UseRealTime()->Unit(benchmark::kMillisecond);

// What a load and a save do between two files, beside the same by a general library.
void BM_ReadAndWriteState(benchmark::State& state) {
  const std::string text = encodeJSON(fullState(wholeMinute), JSONLayout::prettySorted);
  for (auto _ : state) {
    benchmark::DoNotOptimize(encodeJSON(decodeJSON<NODOState>(text), JSONLayout::prettySorted));
  }
}

BENCHMARK(BM_ReadAndWriteState)->Unit(benchmark::kMillisecond);

void BM_ReadAndWriteByDOM(benchmark::State& state) {
  const std::string text = encodeJSON(fullState(wholeMinute), JSONLayout::prettySorted);
  if (nlohmann::json::parse(text).dump(2) != text) {
    state.SkipWithError("the library writes something else");
  }
  for (auto _ : state) {
    benchmark::DoNotOptimize(nlohmann::json::parse(text).dump(2));
  }
}

BENCHMARK(BM_ReadAndWriteByDOM)->Unit(benchmark::kMillisecond);

void BM_DecodeState(benchmark::State& state) {
  const std::string text = encodeJSON(fullState(wholeMinute), JSONLayout::prettySorted);
  for (auto _ : state) {
    benchmark::DoNotOptimize(decodeJSON<NODOState>(text));
  }
}

BENCHMARK(BM_DecodeState)->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_EncodeState(benchmark::State& state) {
  const NODOState full = fullState(wholeMinute);
  for (auto _ : state) {
    benchmark::DoNotOptimize(encodeJSON(full, JSONLayout::prettySorted));
  }
}

BENCHMARK(BM_EncodeState)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace nodo::bench
