#pragma once

#include <string>

namespace nodo {

/// The path by which this program was started (its argument 0); empty when it was given none.
std::string startedPath();

}  // namespace nodo
