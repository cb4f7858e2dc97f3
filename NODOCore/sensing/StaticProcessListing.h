#pragma once

#include <NODOCore/sensing/ProcessListing.h>

#include <utility>
#include <vector>

namespace nodo {

/// A fixed process table, for tests and previews.
class StaticProcessListing : public ProcessListing {
 public:
  std::vector<RunningProcess> processes;

  explicit StaticProcessListing(std::vector<RunningProcess> processes)
      : processes(std::move(processes)) {}

  std::vector<RunningProcess> listProcesses() const override { return processes; }
};

}  // namespace nodo
