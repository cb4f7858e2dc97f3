#pragma once

#include <map>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

namespace nodo::bench {

/// How much time one benchmark may take, measured by another one of the same run: machines differ,
/// and so does one machine from minute to minute.
struct Target {
  std::string measured;
  std::string reference;
  double mostRatio = 1;
};

/// Google Benchmark's console output, and the medians that targets compare.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override;

  /// Prints the ratio of each target whose two benchmarks ran; whether all of them are met.
  bool printRatios(const std::vector<Target>& targets) const;

 private:
  std::map<std::string, double> medianSeconds_;
};

}  // namespace nodo::bench
