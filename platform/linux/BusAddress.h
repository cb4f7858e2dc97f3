#pragma once

#include <optional>
#include <string>

/// Where the D-Bus library itself looks for the buses. Its own ways to them connect at once, when
/// it is too late to say what the connection is not to carry.
namespace nodo {

std::string systemBusAddress();

/// Nothing when this user has none.
std::optional<std::string> sessionBusAddress();

}  // namespace nodo
