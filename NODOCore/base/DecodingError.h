#pragma once

#include <exception>
#include <string>

namespace nodo {

/// A document that could not be decoded: where in it, what was expected there, and what stood
/// there.
class DecodingError : public std::exception {
 public:
  /// `path`: the keys that lead to the place, e.g. "lastRequester.requestedAt"; empty for the
  /// document itself. `expected` and `found`: short texts such as "a boolean" and "number 5".
  DecodingError(std::string path, const std::string& expected, const std::string& found);

  /// This error in a document that was read from `file`, which then begins the message.
  DecodingError inFile(const std::string& file) const;

  /// This error with a message of its reader's own.
  DecodingError saying(std::string message) const;

  const char* what() const noexcept override { return message_.c_str(); }

  bool operator==(const DecodingError& other) const { return message_ == other.message_; }

  const std::string& path() const { return path_; }

 private:
  std::string path_;
  std::string message_;
};

}  // namespace nodo
