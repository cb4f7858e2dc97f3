#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/control/StatusReport.h>
#include <NODOCore/power/PowerOperationResult.h>

#include <optional>
#include <vector>

namespace nodo {

/// The answer of the daemon's reconcile and repair runs.
struct DaemonRunReport {
  Date generatedAt;
  StatusReport status;  ///< after the run
  std::optional<PowerOperationResult>
      operation;  ///< the switching of the lock, never a sleep request
  std::vector<PowerOperationResult> operations;  ///< all of the run, in order
  bool stateChanged = false;

  bool operator==(const DaemonRunReport&) const = default;
};

JSONValue encode(const DaemonRunReport& report);
void decode(const JSONReader& from, DaemonRunReport& report);

}  // namespace nodo
