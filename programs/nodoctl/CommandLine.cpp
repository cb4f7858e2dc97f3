#include <NODOCore/base/Text.h>
#include <programs/nodoctl/CommandLine.h>
#include <programs/nodoctl/CommandTree.h>

#include <CLI/CLI.hpp>

namespace nodo::nodoctl {
namespace {

// The command that the line got as far as, or the program itself.
const CLI::App& reached(const CLI::App& app) {
  const auto commands = app.get_subcommands();
  return commands.empty() ? app : *commands.front();
}

std::string fullName(const CLI::App& app, const CLI::App& command) {
  return &app == &command ? app.get_name() : app.get_name() + " " + command.get_name();
}

}  // namespace

ParsedCommandLine parseCommandLine(const std::vector<std::string>& arguments) {
  Invocation invocation;
  const auto app = makeCommandTree(invocation);
  std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());  // as the parser wants
  try {
    app->parse(reversed);
    if (app->get_subcommands().empty()) {
      throw CLI::RequiredError("A command");
    }
    return invocation;
  } catch (const CLI::CallForHelp&) {
    const CLI::App& command = reached(*app);
    return HelpText{command.help(&command == app.get() ? "" : app->get_name())};
  } catch (const CLI::CallForVersion& version) {
    return HelpText{std::string(version.what()) + "\n"};
  } catch (const CLI::ParseError& error) {
    return UsageError{
        .message = escapedForDisplay(error.what()),
        .hint = "Try '" + fullName(*app, reached(*app)) + " --help' for more information."};
  }
}

}  // namespace nodo::nodoctl
