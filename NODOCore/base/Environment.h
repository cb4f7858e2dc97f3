#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace nodo {

/// A process environment. Always passed in, so that a test can set the scene.
using Environment = std::map<std::string, std::string>;

/// The environment of this process. Entries without "=" are left out. Not safe while another thread
/// changes the environment.
Environment processEnvironment();

/// What the variable `name` holds. Nothing when it is not set or empty, which mostly means the
/// same.
std::optional<std::string> nonEmptyValue(const Environment& environment, const std::string& name);

/// The version of this library and of the programs built with it, e.g. "0.1.0".
std::string_view version();

}  // namespace nodo
