#pragma once

#include <NODOCore/control/PowerDecision.h>

#include <exception>
#include <functional>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

/// What every program does around its own work: says what a command line asks for or why it asks
/// for nothing, writes answers and complaints, and ends with the right status. And what their
/// options have in common.
namespace nodo {

/// The command line asked for help or the version: what to print.
struct HelpText {
  std::string text;
};

/// The command line makes no sense: why, and how to find out what does.
struct UsageError {
  std::string message;
  std::string hint;
};

inline constexpr int exitSuccess = 0;
inline constexpr int exitFailure = 1;
inline constexpr int exitWrongUse = 2;

/// Where a program writes, and under which name it complains.
struct Console {
  std::string_view program;
  std::ostream& output;
  std::ostream& error;

  /// Writes an answer, whole. Throws std::runtime_error when it could not be, as on a full disk.
  void print(const std::string& text) const;

  /// Writes `message` as a line of this program, foreign control characters escaped.
  void complain(std::string_view message) const;

  /// Complains of a wrong use. Returns the exit status.
  int refuse(const UsageError& usage) const;
};

/// Prints the help that `parse` finds to be asked for, complains of a wrong use, or performs the
/// request. Whatever is thrown becomes a complaint. Returns the exit status.
template <class Request>
int runProgram(
    const Console& console, const std::vector<std::string>& arguments,
    std::variant<Request, HelpText, UsageError> (*parse)(const std::vector<std::string>& arguments),
    const std::function<int(const Request&)>& perform) {
  try {
    const auto parsed = parse(arguments);
    if (const auto* usage = std::get_if<UsageError>(&parsed)) {
      return console.refuse(*usage);
    }
    if (const auto* help = std::get_if<HelpText>(&parsed)) {
      console.print(help->text);
      return exitSuccess;
    }
    return perform(std::get<Request>(parsed));
  } catch (const std::exception& error) {
    console.complain(error.what());
    return exitFailure;
  }
}

/// A number of digits and at most one point, whatever the locale: 010 is ten, "nan" is none.
std::optional<double> decimalNumber(const std::string& text);

/// The value of --bus: "system", "session" or an address on this computer. Throws
/// CLI::ValidationError for anything else.
std::string busChoice(const std::string& text);

/// The limits that the programs keep to unless told otherwise: a fifth of the battery as a reserve,
/// half a day at most for one request (an agent left alone overnight), a minute to sit down again
/// after opening the lid, five minutes for a network to come back.
inline constexpr SafetyPolicy defaultPolicy{.minimumBatteryPercent = 20,
                                            .maxManualDurationMinutes = 720,
                                            .lidOpenGraceSeconds = 60,
                                            .noRouteGraceSeconds = 300};

}  // namespace nodo
