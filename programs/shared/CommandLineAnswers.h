#pragma once

#include <string>

/// What a program says to a command line that asks it to do nothing, and with which status it ends.
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

}  // namespace nodo
