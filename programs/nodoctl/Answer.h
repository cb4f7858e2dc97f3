#pragma once

#include <optional>
#include <string>
#include <vector>

namespace nodo::nodoctl {

/// What a command has to say.
struct Answer {
  std::string output;              ///< for standard output, whole
  std::vector<std::string> hints;  ///< for standard error, a line each
  bool failed = false;             ///< whether the output tells of a failure
  /// The exit status, where it is another's.
  std::optional<int> exitStatus = {};
};

}  // namespace nodo::nodoctl
