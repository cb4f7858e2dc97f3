#pragma once

#include <exception>
#include <string>
#include <utility>

namespace nodo {

/// A config.toml in which the hooks cannot be switched on without risk to the rest of it. The
/// message names the file and says what to write there by hand.
class CodexConfigError : public std::exception {
 public:
  explicit CodexConfigError(std::string message) : message_(std::move(message)) {}

  const char* what() const noexcept override { return message_.c_str(); }

  bool operator==(const CodexConfigError& other) const { return message_ == other.message_; }

 private:
  std::string message_;
};

}  // namespace nodo
