#include <cstdio>

#include <bench/RatioReporter.h>

namespace nodo::bench {

void RatioReporter::ReportRuns(const std::vector<Run>& runs) {
  for (const Run& run : runs) {
    if (run.aggregate_name == "median") {
      // Of the processor, unless the benchmark waits for other processes.
      const bool isWall = run.run_name.time_type == "real_time";
      medianSeconds_[run.run_name.function_name] =
          (isWall ? run.GetAdjustedRealTime() : run.GetAdjustedCPUTime()) /
          benchmark::GetTimeUnitMultiplier(run.time_unit);
    }
  }
  ConsoleReporter::ReportRuns(runs);
}

bool RatioReporter::printRatios(const std::vector<Target>& targets) const {
  bool allMet = true;
  for (const Target& target : targets) {
    const auto measured = medianSeconds_.find(target.measured);
    const auto reference = medianSeconds_.find(target.reference);
    if (measured == medianSeconds_.end() || reference == medianSeconds_.end()) {
      continue;
    }
    const double ratio = measured->second / reference->second;
    const bool met = ratio <= target.mostRatio;
    allMet = allMet && met;
    std::printf("%s / %s: %.2f (at most %.2f%s)\n", target.measured.c_str(),
                target.reference.c_str(), ratio, target.mostRatio, met ? "" : ": MISSED");
  }
  return allMet;
}

}  // namespace nodo::bench
