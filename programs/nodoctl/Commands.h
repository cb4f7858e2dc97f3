#pragma once

#include <programs/nodoctl/Invocation.h>
#include <programs/nodoctl/Tool.h>

#include <string>
#include <vector>

namespace nodo::nodoctl {

/// What a command has to say.
struct Answer {
  std::string output;              ///< for standard output, whole
  std::vector<std::string> hints;  ///< for standard error, a line each
  bool failed = false;             ///< whether the output tells of a failure
};

/// Carries out what the command line asked for. Throws the errors of the library with a message for
/// people.
Answer perform(const Invocation& invocation, const ToolContext& context);

}  // namespace nodo::nodoctl
