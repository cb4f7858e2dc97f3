#pragma once

#include <string>

namespace nodo {

/// Writes `text` as one line of the daemon's on standard error. Control characters are shown
/// escaped: part of it may be a caller's.
void logLine(const std::string& text);

}  // namespace nodo
