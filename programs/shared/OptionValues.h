#pragma once

#include <optional>
#include <string>

/// Values that options of several programs take.
namespace nodo {

/// A number of digits and at most one point, whatever the locale: 010 is ten, "nan" is none.
std::optional<double> decimalNumber(const std::string& text);

/// The value of --bus: "system", "session" or an address on this computer. Throws
/// CLI::ValidationError for anything else.
std::string busChoice(const std::string& text);

}  // namespace nodo
