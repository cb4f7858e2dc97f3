#pragma once

#include <programs/nodod/Options.h>

#include <string>
#include <variant>
#include <vector>

namespace nodo::nodod {

/// The command line asked for help or the version: what to print.
struct HelpText {
  std::string text;
};

/// The command line makes no sense: why, and how to find out what does.
struct UsageError {
  std::string message;
  std::string hint;
};

using ParsedCommandLine = std::variant<Options, HelpText, UsageError>;

/// What `arguments` (without the program's name) ask for. Pure.
ParsedCommandLine parseCommandLine(const std::vector<std::string>& arguments);

}  // namespace nodo::nodod
