#pragma once

#include <cstddef>
#include <exception>
#include <functional>
#include <optional>
#include <ostream>
#include <sstream>
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
  std::string hint;  ///< a line of its own; empty when the message says it all
};

inline constexpr int exitSuccess = 0;
inline constexpr int exitFailure = 1;
inline constexpr int exitWrongUse = 2;

/// Makes the process independent of how it was started. To be called first of all.
///
/// Each standard stream that is closed is replaced by what cannot be read or written either: the
/// next file that is opened would have its number, and get what is meant for it. SIGCHLD has its
/// default action, as the exit statuses of tools would be lost where a starter ignores it. SIGXFSZ
/// does nothing, so that a file that may not grow is an error (EFBIG) of its save; what this
/// process starts has that signal's default action again, or ignores it as the starter did.
void prepareProcess();

/// The stream of a log that never waits for its reader, as one that holds the sleep lock must not.
///
/// Each flush, which follows each output, writes at once what fits. What does not is dropped, and
/// how many lines that were is said once there is room again. Only somebody else who writes to the
/// same pipe at that very moment can still take the room that was found.
class LogStream : public std::ostream {
 public:
  /// In bytes; what is longer is cut. Nearly every pipe takes as many in one piece.
  static constexpr std::size_t longestLine = 4000;

  /// `program` is the name under which it says so.
  LogStream(int descriptor, std::string_view program);

  /// From now on the lines go to the file `path`, which takes the descriptor's place; and once
  /// another one has its name, as when logs are turned over, to that one. Throws std::system_error
  /// when it cannot be opened now; a later one that cannot is not followed.
  void follow(const std::string& path);

 private:
  class Lines : public std::stringbuf {
   public:
    Lines(int descriptor, std::string_view program) : descriptor_(descriptor), program_(program) {}

    void follow(const std::string& path);

   protected:
    int sync() override;

   private:
    bool saysWhatIsMissing();
    bool write(std::string_view text);
    bool takeFile();

    int descriptor_;
    std::string program_;
    std::string path_;            // of the file that is followed
    std::ptrdiff_t dropped_ = 0;  // lines
    bool isLineCut_ = false;      // the last that was written is the beginning of a line
  };

  Lines lines_;
};

/// Where a program writes, and under which name it complains.
struct Console {
  /// In bytes; of a longer complaint the beginning is shown.
  static constexpr std::size_t longestMessage = 3500;

  std::string_view program;
  std::ostream& output;
  std::ostream& error;

  /// Writes an answer, whole. Throws std::runtime_error when it could not be, as on a full disk.
  void print(const std::string& text) const;

  /// Writes `message` as a line of this program, foreign control characters escaped and what is too
  /// long cut.
  void complain(std::string_view message) const;

  /// Complains of a wrong use. Returns the exit status.
  int refuse(const UsageError& usage) const;
};

/// Prints the help that `parse` finds to be asked for, complains of a wrong use, or performs the
/// request. Whatever is thrown becomes a complaint. Returns the exit status.
template <class Request>
int runProgram(const Console& console, const std::vector<std::string>& arguments,
               const std::function<std::variant<Request, HelpText, UsageError>(
                   const std::vector<std::string>& arguments)>& parse,
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

}  // namespace nodo
