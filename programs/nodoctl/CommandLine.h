#pragma once

#include <programs/nodoctl/Invocation.h>
#include <programs/shared/ProgramFrame.h>

#include <string>
#include <variant>
#include <vector>

namespace nodo::nodoctl {

using ParsedCommandLine = std::variant<Invocation, HelpText, UsageError>;

/// What `arguments` (without the program's name) ask for. Pure.
ParsedCommandLine parseCommandLine(const std::vector<std::string>& arguments);

}  // namespace nodo::nodoctl
