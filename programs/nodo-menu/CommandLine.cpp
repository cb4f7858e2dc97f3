#include <NODOCore/base/Environment.h>
#include <programs/nodo-menu/CommandLine.h>

#include <CLI/CLI.hpp>

namespace nodo::menu {

ParsedCommandLine parseCommandLine(const std::vector<std::string>& arguments, int columns) {
  Options options;
  CLI::App app(
      "Shows in the panel or the menu bar whether this computer is kept awake, and keeps it awake "
      "when asked to.",
      "nodo-menu");
  app.set_help_flag("-h,--help", "Show this help and exit");
  app.set_version_flag("-V,--version", "nodo-menu " + std::string(version()),
                       "Show the version and exit");
  app.add_flag("--window", options.showsWindow,
               "Show the window that says why the computer is kept awake, or not");
  app.add_option_function<std::string>(
         "--bus", [&options](const std::string& text) { options.daemon.bus = busChoice(text); },
         "The D-Bus bus that the daemon is on (default: the system's, else the session's)")
      ->type_name("system|session|ADDRESS");
  return parseOptions(app, options, arguments, columns);
}

}  // namespace nodo::menu
