#pragma once

#include <cstdint>
#include <exception>
#include <optional>
#include <string>

namespace nodo {

/// The library's own failures. Those of files, launches and documents are std::system_error and
/// DecodingError.
class NODOError : public std::exception {
 public:
  enum class Case {
    processListingFailed,
    invalidDuration,
    invalidCommand,
    stateDirectoryUnavailable,
  };

  /// `detail` ends the message: what the listing tool said, which rule the duration broke, what is
  /// wrong with the command.
  static NODOError processListingFailed(std::string detail);
  static NODOError invalidDuration(std::string detail);
  static NODOError invalidCommand(std::string detail);
  static NODOError stateDirectoryUnavailable();

  const char* what() const noexcept override { return message_.c_str(); }

  Case errorCase() const { return case_; }

  const std::string& detail() const { return detail_; }

  bool operator==(const NODOError& other) const {
    return case_ == other.case_ && detail_ == other.detail_;
  }

 private:
  NODOError(Case errorCase, const char* text, std::string detail);

  Case case_;
  std::string detail_;
  std::string message_;
};

/// A document that could not be decoded: where in it, what was expected there, and what stood
/// there.
class DecodingError : public std::exception {
 public:
  /// `path`: the keys that lead to the place, e.g. "lastRequester.requestedAt"; empty for the
  /// document itself. `expected` and `found`: short texts such as "a boolean" and "number 5".
  DecodingError(std::string path, const std::string& expected, const std::string& found);

  /// This error with the line of the text at which that stops being a document, counted from 1.
  DecodingError atLine(std::int64_t line) const;

  /// This error in a document that was read from `file`, which then begins the message.
  DecodingError inFile(const std::string& file) const;

  /// This error with a message of its reader's own.
  DecodingError saying(std::string message) const;

  const char* what() const noexcept override { return message_.c_str(); }

  bool operator==(const DecodingError& other) const { return message_ == other.message_; }

  const std::string& path() const { return path_; }

  /// Absent where the text is a document that says something else than was expected.
  std::optional<std::int64_t> line() const { return line_; }

 private:
  std::string path_;
  std::optional<std::int64_t> line_;
  std::string message_;
};

/// Stops the process after one line on standard error. For broken preconditions only: what bad
/// input can cause is thrown as an error instead.
[[noreturn]] void programmingFault(const char* what) noexcept;

/// `minuend - subtrahend`; a result that does not fit in 64 bits is a programming fault.
std::int64_t checkedDifference(std::int64_t minuend, std::int64_t subtrahend);

}  // namespace nodo
