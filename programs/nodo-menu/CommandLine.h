#pragma once

#include <programs/nodoctl/CommandLine.h>
#include <programs/shared/Help.h>
#include <programs/shared/ProgramFrame.h>

#include <string>
#include <variant>
#include <vector>

namespace nodo::menu {

/// How nodo-menu is to run.
struct Options {
  nodoctl::DaemonOptions daemon;
  bool showsWindow = false;  ///< the window "Why?" at once
};

using ParsedCommandLine = std::variant<Options, HelpText, UsageError>;

/// What `arguments` (without the program's name) ask for; help in lines of `columns` characters at
/// most. Pure.
ParsedCommandLine parseCommandLine(const std::vector<std::string>& arguments,
                                   int columns = usualColumns);

}  // namespace nodo::menu
