#include <NODOCore/base/Environment.h>
#include <NODOCore/base/Text.h>
#include <programs/nodod/CommandLine.h>
#include <programs/shared/ProgramFrame.h>

#include <cstdint>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace nodo::nodod {
namespace {

// Some thirty years in seconds: more is a slip, and leaves the range in which instants are exact.
constexpr std::int64_t largest = 1'000'000'000;

// The library's own conversions take 010 for eight, and "nan" for a number.
std::int64_t wholeNumber(const std::string& option, const std::string& text, std::int64_t from,
                         std::int64_t to) {
  const auto number = integerFromText<std::int64_t>(text);
  if (!number || *number < from || *number > to) {
    throw CLI::ValidationError(
        option, fmt::format("\"{}\" is not a whole number from {} to {}", text, from, to));
  }
  return *number;
}

double seconds(const std::string& option, const std::string& text) {
  const auto value = decimalNumber(text);
  if (!value || *value > static_cast<double>(largest)) {
    throw CLI::ValidationError(
        option, fmt::format("\"{}\" is not a number of seconds from 0 to {}", text, largest));
  }
  return *value;
}

PowerChoice powerChoice(const std::string& text) {
  const auto choice = fromRawValue<PowerChoice>(text);
  if (!choice) {
    throw CLI::ValidationError("--power",
                               "\"" + text + "\" is none of auto, pmset, logind, simulated");
  }
  return *choice;
}

void addWholeNumber(CLI::App& app, const std::string& option, std::int64_t& into, std::int64_t from,
                    std::int64_t to, const std::string& type, const std::string& description) {
  app.add_option_function<std::string>(
         option,
         [&into, option, from, to](const std::string& text) {
           into = wholeNumber(option, text, from, to);
         },
         fmt::format("{} (default: {})", description, into))
      ->type_name(type);
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
  addWholeNumber(app, "--minimum-battery", into.settings.policy.minimumBatteryPercent, 0, 100,
                 "PERCENT", "On battery, never keep awake at or below this charge");
  addWholeNumber(app, "--max-minutes", into.settings.policy.maxManualDurationMinutes, 1, largest,
                 "N", "The longest timer that one request may set, in minutes");
  addWholeNumber(
      app, "--lid-open-grace", into.settings.policy.lidOpenGraceSeconds, 0, largest, "S",
      "For how long reports mention a lid that was just opened (changes nothing else), in "
      "seconds");
  addWholeNumber(app, "--no-route-grace", into.settings.policy.noRouteGraceSeconds, 0, largest, "S",
                 "How long the network may be missing before sleep is allowed again, in seconds");
  app.add_option_function<std::string>(
         "--release-grace",
         [&into](const std::string& text) {
           into.settings.releaseGrace = Seconds(seconds("--release-grace", text));
         },
         "How long after a timer's end the lock is released, in seconds (default: 1)")
      ->type_name("S");
  app.add_option_function<std::string>(
         "--log", [&into](const std::string& text) { into.log = path("--log", text); },
         "Write the log to this file instead of standard error; once it has been moved away, to a "
         "new "
         "one of that name")
      ->type_name("FILE");
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
  std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());  // as the parser wants
  try {
    app.parse(reversed);
    return options;
  } catch (const CLI::CallForHelp&) {
    return HelpText{helpText(app, app.get_name(), columns)};
  } catch (const CLI::CallForVersion& version) {
    return HelpText{std::string(version.what()) + "\n"};
  } catch (const CLI::ParseError& error) {
    return UsageError{.message = escapedForDisplay(error.what()),
                      .hint = "Try 'nodod --help' for more information."};
  }
}

}  // namespace nodo::nodod
