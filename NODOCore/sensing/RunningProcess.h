#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace nodo {

/// One row of the process table.
struct RunningProcess {
  std::int32_t pid = 0;
  std::optional<std::int32_t> ppid;
  std::string executable;  ///< as the table prints it: usually the path that was started
  std::string command;     ///< the full command line; equal to `executable` where there is none

  bool operator==(const RunningProcess&) const = default;
};

}  // namespace nodo
