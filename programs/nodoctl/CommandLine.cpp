#include <NODOCore/base/Text.h>
#include <programs/nodoctl/CommandLine.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

namespace nodo::nodoctl {
namespace {

// The command that the line got as far as, or the program itself.
const CLI::App& reached(const CLI::App& app) {
  const auto commands = app.get_subcommands();
  return commands.empty() ? app : reached(*commands.front());
}

std::vector<const CLI::App*> commandsOf(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App*) { return true; });
}

bool hasCommands(const CLI::App& app) {
  return !commandsOf(app).empty();
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

// What people type who know other tools, and what they mean by it here.
constexpr std::array<std::pair<std::string_view, std::string_view>, 2> otherWords{
    {{"start", "nodoctl manual"}, {"log", "nodoctl doctor --verbose"}}};

// What is wrong with `word` where a command of `app` is due.
std::string unknownCommand(const CLI::App& app, const std::string& word) {
  std::vector<std::string> names;
  for (const CLI::App* command : commandsOf(app)) {
    names.push_back(command->get_name());
  }
  std::string meant = closestWord(word, names);
  for (const auto& [other, command] : otherWords) {
    meant = app.get_parent() == nullptr && word == other ? std::string(command) : meant;
  }
  return "there is no command \"" + fullName(app) + " " + word + "\"" + suggestion(meant);
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
    return unknownCommand(command, words.front());
  }
  const auto option = std::find_if(words.begin(), words.end(),
                                   [](const auto& word) { return word.starts_with("--"); });
  const std::string typed =
      option == words.end() ? std::string() : option->substr(0, option->find('='));
  const std::string closest = closestOption(command, typed);
  return closest.empty() ? error.what()
                         : "there is no option \"" + typed + "\"" + suggestion(closest);
}

// `command` is what the line got as far as.
UsageError usageError(const CLI::App& command, const std::string& message) {
  return {.message = escapedForDisplay(message),
          .hint = "Try '" + fullName(command) + " --help' for more information."};
}

// A line that makes sense as far as it goes.
class NoCommandGiven : public CLI::ParseError {
 public:
  NoCommandGiven() : ParseError("NoCommand", "No command given.", CLI::ExitCodes::RequiredError) {}
};

UsageError noCommandGiven(const CLI::App& command) {
  const std::string name = fullName(command);
  const std::string first = name + (command.get_parent() == nullptr ? " doctor" : " inspect");
  return {.message = "No command given. Try '" + first + "' or '" + name + " --help'.", .hint = ""};
}

HelpText helpOf(const CLI::App& command, int columns) {
  return {helpText(command, fullName(command), columns)};
}

// What "nodoctl help WORD ..." shows.
ParsedCommandLine helpAbout(const CLI::App& app, const std::vector<std::string>& words,
                            int columns) {
  const CLI::App* command = &app;
  for (const std::string& word : words) {
    const auto commands = commandsOf(*command);
    const auto found = std::find_if(commands.begin(), commands.end(),
                                    [&](const CLI::App* each) { return each->get_name() == word; });
    if (found == commands.end()) {
      return usageError(*command, unknownCommand(*command, word));
    }
    command = *found;
  }
  return helpOf(*command, columns);
}

// Throws what the parser throws when the line asks for help or makes no sense.
void parse(CLI::App& app, const std::vector<std::string>& arguments) {
  std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());  // as the parser wants
  app.parse(reversed);
  if (app.get_subcommands().empty() || hasCommands(reached(app))) {
    throw NoCommandGiven();
  }
}

// What the whole tree makes of a line for which a part of it was not enough.
ParsedCommandLine explain(const std::vector<std::string>& arguments, int columns) {
  Invocation invocation;
  const auto app = makeCommandTree(invocation).app;
  try {
    parse(*app, arguments);
    const CLI::App& command = reached(*app);
    if (command.get_name() == helpCommand) {
      return helpAbout(*app, command.get_option(helpWords)->results(), columns);
    }
    return invocation;
  } catch (const CLI::CallForHelp&) {
    return helpOf(reached(*app), columns);
  } catch (const NoCommandGiven&) {
    return noCommandGiven(reached(*app));
  } catch (const CLI::CallForVersion& version) {
    return HelpText{std::string(version.what()) + "\n"};
  } catch (const CLI::ParseError& error) {
    return usageError(reached(*app), explained(*app, error));
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

ParsedCommandLine parseCommandLine(const std::vector<std::string>& arguments, int columns) {
  // "complete" stands in no tree: no help and no completion offers it, and whatever is behind it
  // belongs to the line that somebody types.
  if (!arguments.empty() && arguments.front() == "complete") {
    return CompleteCommand{.words = {arguments.begin() + 1, arguments.end()}};
  }
  Invocation invocation;
  const auto app = makeCommandTree(invocation, &arguments).app;
  try {
    parse(*app, arguments);
    if (reached(*app).get_name() != helpCommand) {
      return invocation;
    }
  } catch (const CLI::ParseError&) {
    // Told below, where all commands are known.
  }
  return explain(arguments, columns);
}

}  // namespace nodo::nodoctl
