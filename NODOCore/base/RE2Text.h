#pragma once

#include <string_view>

#include <re2/re2.h>

namespace nodo {

/// `text` as RE2 takes it: its own type in some versions, another library's in others.
inline re2::StringPiece re2Text(std::string_view text) {
  return {text.data(), text.size()};
}

}  // namespace nodo
