#pragma once

#include <cstddef>

#include <systemd/sd-bus.h>

namespace nodo {

/// Whether the arguments of `message` take more than about `limit` bytes; the library does not
/// tell.
///
/// Walks through them, no further than that, and leaves them to be read from their start. Throws
/// std::runtime_error for those that the library cannot read.
bool isLargerThan(sd_bus_message* message, std::size_t limit);

}  // namespace nodo
