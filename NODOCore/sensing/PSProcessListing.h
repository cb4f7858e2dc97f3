#pragma once

#include <NODOCore/sensing/ProcessListing.h>

#include <string_view>
#include <vector>

namespace nodo {

/// Reads the process table with `/bin/ps -axo pid=,ppid=,comm=,command=`.
class PSProcessListing : public ProcessListing {
 public:
  std::vector<RunningProcess> listProcesses() const override;

  /// The rows in what `ps` printed. Columns are separated by blanks (only blanks), the fourth runs
  /// to the end of its line; a row without three columns or with an identifier that is no 32-bit
  /// decimal integer is left out. A path with blanks in the third column spills over into the
  /// fourth.
  static std::vector<RunningProcess> parse(std::string_view output);
};

}  // namespace nodo
