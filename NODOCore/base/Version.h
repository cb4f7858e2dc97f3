#pragma once

#include <string_view>

namespace nodo {

/// The version of this library and of the programs built with it, e.g. "0.1.0".
std::string_view version();

}  // namespace nodo
