#pragma once

#include <string>
#include <string_view>

/// Unicode's noncharacters: U+FDD0 to U+FDEF and the last two code points of each plane.
///
/// They are well-formed UTF-8, and JSON and the programs' arguments on this system may hold them.
/// The D-Bus library sends and reads no string with one, though the bus itself carries them. Pure
/// and safe from any thread.
namespace nodo {

/// `json`, a JSON text, with its noncharacters as JSON's escapes: the same to whoever decodes it.
std::string withEscapedNoncharacters(std::string_view json);

/// `text` with U+FFFD in place of its noncharacters.
std::string withoutNoncharacters(std::string_view text);

}  // namespace nodo
