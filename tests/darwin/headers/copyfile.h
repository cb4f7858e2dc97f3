#pragma once

// What nodo's sources for Darwin use of its header of this name; see DarwinNames.h.

#include <cstdint>

// NOLINTBEGIN(readability-identifier-naming): the system's own names
using copyfile_state_t = struct _copyfile_state*;
using copyfile_flags_t = std::uint32_t;

#define COPYFILE_ACL (1U << 0U)
#define COPYFILE_XATTR (1U << 2U)

extern "C" int fcopyfile(int from, int to, copyfile_state_t state, copyfile_flags_t flags);
// NOLINTEND(readability-identifier-naming)
