#pragma once

#include <NODOCore/base/Environment.h>

#include <optional>
#include <string>

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

}  // namespace nodo
