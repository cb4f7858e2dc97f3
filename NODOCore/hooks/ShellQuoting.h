#pragma once

#include <string>
#include <string_view>

namespace nodo {

/// `text` as one word of a POSIX shell, in single quotes, whatever it holds. Pure.
std::string shellQuoted(std::string_view text);

}  // namespace nodo
