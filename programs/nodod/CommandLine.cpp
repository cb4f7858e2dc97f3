#include <NODOCore/base/Environment.h>
#include <NODOCore/base/Text.h>
#include <programs/nodod/CommandLine.h>
#include <programs/shared/ProgramFrame.h>

#include <cstdint>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace nodo::nodod {
namespace {

// The library's own conversions take 010 for eight, and "nan" for a number.
std::optional<SettingValue> valueFor(const Setting& setting, const std::string& text) {
  if (setting.isSwitch()) {
    return text == "true" || text == "false" ? std::optional<SettingValue>(text == "true")
                                             : std::nullopt;
  }
  if (const auto whole = integerFromText<std::int64_t>(text)) {
    return *whole;
  }
  if (const auto number = decimalNumber(text)) {
    return *number;
  }
  return std::nullopt;
}

ChosenSetting chosen(const Setting& setting, const std::string& text) {
  const auto value = valueFor(setting, text);
  DaemonSettings any;
  if (!value || !setting.set(any, *value)) {
    throw CLI::ValidationError("--" + std::string(setting.name),
                               "\"" + text + "\" is not " + setting.expected());
  }
  return {&setting, *value};
}

PowerChoice powerChoice(const std::string& text) {
  const auto choice = fromRawValue<PowerChoice>(text);
  if (!choice) {
    throw CLI::ValidationError("--power",
                               "\"" + text + "\" is none of auto, pmset, logind, simulated");
  }
  return *choice;
}

void addSetting(CLI::App& app, const Setting& setting, Options& into) {
  const std::string line = setting.line(DaemonSettings());
  app.add_option_function<std::string>(
         "--" + std::string(setting.name),
         [&setting, &into](const std::string& text) {
           into.chosen.push_back(chosen(setting, text));
         },
         fmt::format("{} (default: {})", setting.description, line.substr(line.rfind(' ') + 1)))
      ->type_name(std::string(setting.unit));
}

std::string path(const std::string& option, const std::string& text) {
  if (text.empty()) {
    throw CLI::ValidationError(option, "must not be empty");
  }
  return text;
}

void describe(CLI::App& app, Options& into) {
  app.set_help_flag("-h,--help", "Show this help and exit");
  app.set_version_flag("-V,--version", "nodod " + std::string(version()),
                       "Show the version and exit");
  app.add_option_function<std::string>(
         "--state-dir",
         [&into](const std::string& text) { into.stateFolder = path("--state-dir", text); },
         "Where the state is kept (default: NODO_STATE_DIR, else on Linux STATE_DIRECTORY, "
         "else the system's folder, or .nodo/daemon under HOME on a session bus)")
      ->type_name("DIR");
  app.add_option_function<std::string>(
         "--bus", [&into](const std::string& text) { into.bus = busChoice(text); },
         "Which bus to answer on (default: the system's if it can be reached, else the session's)")
      ->type_name("system|session|ADDRESS");
  app.add_option_function<std::string>(
         "--power", [&into](const std::string& text) { into.power = powerChoice(text); },
         "How to block sleep (default: auto, what this computer has; pmset on Linux is for trials "
         "with "
         "stand-ins for the tools of macOS)")
      ->type_name("auto|pmset|logind|simulated");
  app.add_option_function<std::string>(
         "--config", [&into](const std::string& text) { into.config = path("--config", text); },
         "The settings file, in TOML, whose names are those of the options below; they win. Read "
         "again at SIGHUP (default: /etc/nodo/nodod.toml, on macOS /Library/Application "
         "Support/nodo/nodod.toml)")
      ->type_name("FILE");
  for (const Setting& setting : allSettings()) {
    addSetting(app, setting, into);
  }
  app.add_option_function<std::string>(
         "--log", [&into](const std::string& text) { into.log = path("--log", text); },
         "Write the log to this file instead of standard error; once it has been moved away, to a "
         "new "
         "one of that name")
      ->type_name("FILE");
  app.add_flag("--show-settings", into.showSettings,
               "Show the settings that hold with this file and these options, and exit: 1 when "
               "something in the file is not heeded");
  app.add_flag("--once", into.once,
               "Run one pass, print its report as JSON, release the lock and exit");
}

}  // namespace

ParsedCommandLine parseCommandLine(const std::vector<std::string>& arguments, int columns) {
  Options options;
  CLI::App app(
      "Holds this computer's sleep lock while a timer runs, and answers the tools that set it.",
      "nodod");
  describe(app, options);
  return parseOptions(app, options, arguments, columns);
}

}  // namespace nodo::nodod
