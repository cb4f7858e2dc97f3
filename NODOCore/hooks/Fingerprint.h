#pragma once

#include <string>
#include <string_view>

namespace nodo {

/// The 64-bit FNV-1a hash of the bytes of `text` as 16 hexadecimal digits, by which people and
/// reports tell two versions of a file apart. No protection against somebody who wants two texts to
/// have the same one.
std::string fingerprint(std::string_view text);

}  // namespace nodo
