#include <NODOCore/base/Text.h>
#include <programs/nodoctl/CommandLine.h>
#include <programs/nodoctl/CommandTree.h>

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

}  // namespace

ParsedCommandLine parseCommandLine(const std::vector<std::string>& arguments) {
  Invocation invocation;
  const auto app = makeCommandTree(invocation);
  std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());  // as the parser wants
  try {
    app->parse(reversed);
    if (hasCommands(reached(*app))) {
      throw CLI::RequiredError("A command");
    }
    return invocation;
  } catch (const CLI::CallForHelp&) {
    const CLI::App& command = reached(*app);
    return HelpText{command.help(prefix(command))};
  } catch (const CLI::CallForVersion& version) {
    return HelpText{std::string(version.what()) + "\n"};
  } catch (const CLI::ParseError& error) {
    return UsageError{.message = escapedForDisplay(error.what()),
                      .hint = "Try '" + fullName(reached(*app)) + " --help' for more information."};
  }
}

}  // namespace nodo::nodoctl
