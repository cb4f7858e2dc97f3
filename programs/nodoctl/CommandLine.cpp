#include <NODOCore/base/Text.h>
#include <programs/nodoctl/CommandLine.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace nodo::nodoctl {
namespace {

// The command that the line got as far as, or the program itself.
const CLI::App& reached(const CLI::App& app) {
  const auto commands = app.get_subcommands();
  return commands.empty() ? app : reached(*commands.front());
}

bool hasCommands(const CLI::App& app) {
  return !app.get_subcommands([](const CLI::App*) { return true; }).empty();
}

// What stands before the command's own name.
std::string prefix(const CLI::App& command) {
  const CLI::App* parent = command.get_parent();
  if (parent == nullptr) {
    return "";
  }
  const std::string further = prefix(*parent);
  return (further.empty() ? "" : further + " ") + parent->get_name();
}

std::string fullName(const CLI::App& command) {
  const std::string before = prefix(command);
  return (before.empty() ? "" : before + " ") + command.get_name();
}

// The number of characters to type, drop, change or swap with their neighbour to get from one word
// to the other.
std::size_t typingErrors(const std::string& from, const std::string& to) {
  std::vector<std::vector<std::size_t>> errors(from.size() + 1,
                                               std::vector<std::size_t>(to.size() + 1));
  for (std::size_t row = 0; row <= from.size(); ++row) {
    for (std::size_t column = 0; column <= to.size(); ++column) {
      if (row == 0 || column == 0) {
        errors[row][column] = row + column;
        continue;
      }
      const bool isSame = from[row - 1] == to[column - 1];
      errors[row][column] = std::min({errors[row - 1][column] + 1, errors[row][column - 1] + 1,
                                      errors[row - 1][column - 1] + (isSame ? 0 : 1)});
      if (row > 1 && column > 1 && from[row - 1] == to[column - 2] &&
          from[row - 2] == to[column - 1]) {
        errors[row][column] = std::min(errors[row][column], errors[row - 2][column - 2] + 1);
      }
    }
  }
  return errors[from.size()][to.size()];
}

std::string closestCommand(const CLI::App& app, const std::string& word) {
  std::vector<std::string> names;
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
    names.push_back(command->get_name());
  }
  return closestWord(word, names);
}

// With its dashes, as it was to be typed.
std::string closestOption(const CLI::App& app, const std::string& word) {
  std::vector<std::string> names;
  for (const CLI::Option* option : app.get_options()) {
    for (const std::string& name : option->get_lnames()) {
      names.push_back("--" + name);
    }
  }
  return closestWord(word, names);
}

// What is wrong with the line, as far as that can be told better than the library does.
std::string explained(const CLI::App& app, const CLI::ParseError& error) {
  const CLI::App& command = reached(app);
  const std::vector<std::string> words = app.remaining(true);
  if (!words.empty() && !words.front().starts_with('-') && hasCommands(command)) {
    return "there is no command \"" + fullName(command) + " " + words.front() + "\"" +
           suggestion(closestCommand(command, words.front()));
  }
  const auto option = std::find_if(words.begin(), words.end(),
                                   [](const auto& word) { return word.starts_with("--"); });
  const std::string typed =
      option == words.end() ? std::string() : option->substr(0, option->find('='));
  const std::string closest = closestOption(command, typed);
  return closest.empty() ? error.what()
                         : "there is no option \"" + typed + "\"" + suggestion(closest);
}

UsageError usageError(const CLI::App& app, const std::string& message) {
  return {.message = escapedForDisplay(message),
          .hint = "Try '" + fullName(reached(app)) + " --help' for more information."};
}

// Throws what the parser throws when the line asks for help or makes no sense.
void parse(CLI::App& app, const std::vector<std::string>& arguments) {
  std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());  // as the parser wants
  app.parse(reversed);
  if (app.get_subcommands().empty() || hasCommands(reached(app))) {
    throw CLI::RequiredError("A command");
  }
}

// What the whole tree makes of a line that a part of it did not understand.
ParsedCommandLine explain(const std::vector<std::string>& arguments) {
  Invocation invocation;
  const auto app = makeCommandTree(invocation).app;
  try {
    parse(*app, arguments);
    return invocation;
  } catch (const CLI::CallForHelp&) {
    const CLI::App& command = reached(*app);
    return HelpText{command.help(prefix(command))};
  } catch (const CLI::CallForVersion& version) {
    return HelpText{std::string(version.what()) + "\n"};
  } catch (const CLI::ParseError& error) {
    return usageError(*app, explained(*app, error));
  }
}

}  // namespace

std::string closestWord(const std::string& word, const std::vector<std::string>& words) {
  constexpr std::size_t longestWord = 20;
  // Of a short word two typing errors leave too little.
  constexpr std::size_t longestShortWord = 4;
  std::string closest;
  if (word.size() > longestWord) {
    return closest;
  }
  std::size_t fewest = word.size() <= longestShortWord ? 2 : 3;
  for (const std::string& each : words) {
    const std::size_t errors = typingErrors(word, each);
    if (errors < fewest) {
      fewest = errors;
      closest = each;
    }
  }
  return closest;
}

std::string suggestion(const std::string& closest) {
  return closest.empty() ? "" : "; did you mean \"" + closest + "\"?";
}

ParsedCommandLine parseCommandLine(const std::vector<std::string>& arguments) {
  // "complete" stands in no tree: no help and no completion offers it, and whatever is behind it
  // belongs to the line that somebody types.
  if (!arguments.empty() && arguments.front() == "complete") {
    return CompleteCommand{.words = {arguments.begin() + 1, arguments.end()}};
  }
  Invocation invocation;
  const auto app = makeCommandTree(invocation, &arguments).app;
  try {
    parse(*app, arguments);
    return invocation;
  } catch (const CLI::ParseError&) {
    return explain(arguments);
  }
}

}  // namespace nodo::nodoctl
