#include <NODOCore/base/JSONCoding.h>

#include <array>
#include <cstdio>
#include <string>
#include <vector>

#include <bench/RatioReporter.h>
#include <bench/SampleState.h>

namespace {

// Medians of interleaved repetitions; options of the caller come later and win.
std::vector<std::string> withDefaults(int argc, char** argv) {
  std::vector<std::string> arguments{
      argv[0], "--benchmark_repetitions=9", "--benchmark_enable_random_interleaving=true",
      "--benchmark_report_aggregates_only=true", "--benchmark_min_time=0.2"};
  arguments.insert(arguments.end(), argv + 1, argv + argc);
  return arguments;
}

}  // namespace

int main(int argc, char** argv) {
  // For the scripts beside this, which measure whole programs.
  if (argc == 2 && std::string(argv[1]) == "--full-state") {
    std::puts(nodo::encodeJSON(nodo::bench::fullState(nodo::currentDate()),
                               nodo::JSONLayout::prettySorted)
                  .c_str());
    return 0;
  }
  std::vector<std::string> arguments = withDefaults(argc, argv);
  std::vector<char*> pointers;
  pointers.reserve(arguments.size() + 1);
  for (std::string& argument : arguments) {
    pointers.push_back(argument.data());
  }
  pointers.push_back(nullptr);
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, pointers.data());
  if (benchmark::ReportUnrecognizedArguments(count, pointers.data())) {
    return 2;
  }

  nodo::bench::RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  const bool allMet = reporter.printRatios({
      {"BM_ListAndClassifyProcesses", "BM_RunPs", 0.5},
      {"BM_ReadAndWriteState", "BM_ReadAndWriteByDOM", 0.35},
  });
  return allMet ? 0 : 1;
}
