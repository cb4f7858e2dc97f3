#pragma once

#include <programs/nodod/Options.h>
#include <programs/shared/ProgramFrame.h>

#include <string>
#include <variant>
#include <vector>

namespace nodo::nodod {

using ParsedCommandLine = std::variant<Options, HelpText, UsageError>;

/// What `arguments` (without the program's name) ask for. Pure.
ParsedCommandLine parseCommandLine(const std::vector<std::string>& arguments);

}  // namespace nodo::nodod
