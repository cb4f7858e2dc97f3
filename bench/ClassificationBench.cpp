#include <NODOCore/sensing/AgentDetector.h>
#include <testing/TemporaryFolder.h>

#include <string>

#include <benchmark/benchmark.h>

#include <bench/CommandLines.h>
#include <bench/Spawn.h>

namespace nodo::bench {
namespace {

constexpr std::size_t rowCount = 100'000;

const std::vector<RunningProcess>& rows() {
  static const std::vector<RunningProcess> rows = CommandLines(2).take(rowCount);
  return rows;
}

// What the detector looks for anywhere in a command line, a line for each text.
std::string needles() {
  std::string lines;
  for (const Agent& agent : allAgents()) {
    for (const AgentSign& sign : agent.signs) {
      if (sign.place == AgentSign::Place::inCommand) {
        lines += std::string(sign.text) + "\n";
      }
    }
  }
  return lines;
}

std::string rowsAsText() {
  std::string text;
  for (const RunningProcess& row : rows()) {
    text += std::to_string(row.pid) + " 1 " + row.executable + " " + row.command + "\n";
  }
  return text;
}

void BM_ClassifyRows(benchmark::State& state) {
  const AgentDetector detector;
  for (auto _ : state) {
    benchmark::DoNotOptimize(detector.detect(rows()));
  }
  state.counters["agents"] = static_cast<double>(detector.detect(rows()).size());
  state.counters["bytes/row"] = static_cast<double>(rowsAsText().size()) / rowCount;
}

BENCHMARK(BM_ClassifyRows)->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_RunGrepOnRows(benchmark::State& state) {
  const test::TemporaryFolder folder;
  folder.write("rows", rowsAsText());
  folder.write("needles", needles());
  // Into a file: grep stops at the first match when nobody can see its output.
  for (auto _ : state) {
    const int status = runIntoFile(
        "/bin/grep",
        {"grep", "-c", "-F", "-i", "-f", (folder / "needles").string(), (folder / "rows").string()},
        folder / "count");
    if (status != 0) {
      state.SkipWithError("grep failed");
    }
  }
  state.counters["matches"] = std::stod(folder.read("count"));
}

BENCHMARK(BM_RunGrepOnRows)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace nodo::bench
