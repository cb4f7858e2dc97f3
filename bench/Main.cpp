#include <array>
#include <cstdlib>
#include <string>
#include <vector>

#include <bench/RatioReporter.h>

namespace {

// Medians of interleaved repetitions; options of the caller come later and win.
std::vector<std::string> withDefaults(int argc, char** argv) {
  std::vector<std::string> arguments{
      argv[0], "--benchmark_repetitions=9", "--benchmark_enable_random_interleaving=true",
      "--benchmark_report_aggregates_only=true", "--benchmark_min_time=0.2"};
  arguments.insert(arguments.end(), argv + 1, argv + argc);
  return arguments;
}

// grep takes a multiple of its time in some locales, so a figure without it says nothing.
std::string localeOfTools() {
  for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
    const char* value = std::getenv(name);
    if (value != nullptr && *value != '\0') {
      return std::string(name) + "=" + value;
    }
  }
  return "not set";
}

}  // namespace

int main(int argc, char** argv) {
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
  benchmark::AddCustomContext("locale of the tools", localeOfTools());

  nodo::bench::RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  const bool allMet = reporter.printRatios({
      {"BM_ListAndClassifyProcesses", "BM_RunPs", 0.5},
      {"BM_ClassifyRows", "BM_RunGrepOnRows", 3.5},
  });
  return allMet ? 0 : 1;
}
