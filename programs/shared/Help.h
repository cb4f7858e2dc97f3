#pragma once

#include <NODOCore/base/Environment.h>
#include <programs/shared/ProgramFrame.h>

#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace CLI {
class App;
}  // namespace CLI

/// How the programs' help is laid out. Nothing here is run for a command that asks for no help.
namespace nodo {

/// Where nobody tells how wide a terminal is.
inline constexpr int usualColumns = 80;

/// Of the terminal behind an open descriptor; nothing when it is none, or does not tell.
std::optional<int> columnsOfTerminal(int descriptor);

/// How wide a line may be: as COLUMNS says when that holds a number of columns, else as wide as the
/// terminal, else as usual.
int columnsOfLine(const Environment& environment, std::optional<int> terminal);

/// How wide the help may be: as COLUMNS says when that holds a number of columns, else as wide as
/// the terminal, else as usual; at least 40, and at most 100, beyond which lines are hard to read.
int helpColumns(const Environment& environment, std::optional<int> terminal);

/// The help of `command`, which is typed as `name`: what it does and what it takes, in lines of at
/// most `columns` characters. A longer word is not broken. Pure.
std::string helpText(const CLI::App& command, const std::string& name, int columns);

/// What `arguments` (without the program's name), which `app` describes, say: nothing when they
/// fill in its options, else what to print or what to complain of.
std::variant<std::monostate, HelpText, UsageError> parseArguments(
    CLI::App& app, const std::vector<std::string>& arguments, int columns);

/// The same, with the options that are filled in.
template <class Options>
std::variant<Options, HelpText, UsageError> parseOptions(CLI::App& app, const Options& options,
                                                         const std::vector<std::string>& arguments,
                                                         int columns) {
  const auto parsed = parseArguments(app, arguments, columns);
  if (const auto* help = std::get_if<HelpText>(&parsed)) {
    return *help;
  }
  if (const auto* usage = std::get_if<UsageError>(&parsed)) {
    return *usage;
  }
  return options;
}

}  // namespace nodo
