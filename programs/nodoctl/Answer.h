#pragma once

#include <iosfwd>
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

/// Writes `message` as a line of this tool, foreign control characters escaped.
void complain(std::ostream& error, const std::string& message);

}  // namespace nodo::nodoctl
