#pragma once

#include <exception>
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

}  // namespace nodo
