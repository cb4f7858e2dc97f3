#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/power/PowerManaging.h>
#include <NODOCore/state/NODOState.h>
#include <programs/nodod/Log.h>

#include <string>
#include <vector>

namespace nodo::nodod {

/// Tells in a line each what was done to the sleep lock and why. An attempt that fails, or is only
/// simulated, is told of once until one succeeds: it is repeated every minute.
class OperationLog {
 public:
  explicit OperationLog(Log log);

  /// Operations of the run that was made at `at`. `state` tells why, as it recorded them; for those
  /// that it did not, `otherwise` does.
  void add(const std::vector<PowerOperationResult>& operations, Date at, const NODOState& state,
           const std::string& otherwise);

  /// An empty `why` is unknown.
  void add(const PowerOperationResult& operation, const std::string& why);

  /// The same for an attempt that has no result.
  void addTrouble(const std::string& line);

 private:
  Log log_;
  std::string lastTrouble_;
};

}  // namespace nodo::nodod
