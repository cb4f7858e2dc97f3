#pragma once

#include <NODOCore/sensing/RunningProcess.h>

#include <vector>

namespace nodo {

/// Supplies the process table.
///
/// Exists so that agents can be found in a fixed list. Implementations may be used from several
/// threads at once; a call blocks until the table is read.
class ProcessListing {
 public:
  virtual ~ProcessListing() = default;

  /// All processes, in the table's order. Throws NODOError::processListingFailed, or
  /// std::system_error when a tool cannot be started.
  virtual std::vector<RunningProcess> listProcesses() const = 0;
};

}  // namespace nodo
