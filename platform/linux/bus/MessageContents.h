#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <systemd/sd-bus.h>

/// What the D-Bus library keeps from messages, and what it does not tell of them.
///
/// It sends and reads no text with one of Unicode's noncharacters: U+FDD0 to U+FDEF and the last
/// two code points of each plane. They are well-formed UTF-8, JSON and the programs' arguments on
/// this system may hold them, and the bus itself carries them.
namespace nodo {

/// `json`, a JSON text, with its noncharacters as JSON's escapes: the same to whoever decodes it.
/// Pure, as is the next.
std::string withEscapedNoncharacters(std::string_view json);

/// `text` with U+FFFD in place of its noncharacters.
std::string withoutNoncharacters(std::string_view text);

/// Whether the arguments of `message` take more than about `limit` bytes. Walks through them, no
/// further than that, and leaves them to be read from their start. Throws BusError for those that
/// the library cannot read.
bool isLargerThan(sd_bus_message* message, std::size_t limit);

}  // namespace nodo
