#pragma once

#include <exception>
#include <string>

namespace nodo {

/// Why the daemon gave the client no answer.
class NODOHelperClientError : public std::exception {
 public:
  enum class Case { unavailable, invalidResponse, timedOut };

  /// The daemon cannot be reached, or says itself that the request failed.
  static NODOHelperClientError unavailable(std::string reason);
  /// What came back is not what was asked for.
  static NODOHelperClientError invalidResponse(std::string reason);
  /// Nothing came back in time.
  static NODOHelperClientError timedOut();

  const char* what() const noexcept override { return message_.c_str(); }

  Case errorCase() const { return case_; }

  /// Empty for `timedOut`.
  const std::string& reason() const { return reason_; }

  bool operator==(const NODOHelperClientError& other) const {
    return case_ == other.case_ && reason_ == other.reason_;
  }

 private:
  NODOHelperClientError(Case errorCase, const char* text, std::string reason);

  Case case_;
  std::string reason_;
  std::string message_;
};

}  // namespace nodo
