#pragma once

// The few names of Darwin that nodo's own sources for it use, so that these compile elsewhere too.
// The values are of no account: nothing that is built with them is ever linked.

#include <spawn.h>

#define CLOCK_UPTIME_RAW 8
#define F_FULLFSYNC 51
#define POSIX_SPAWN_CLOEXEC_DEFAULT 0x4000

// NOLINTNEXTLINE(readability-identifier-naming): the system's own name
extern "C" int posix_spawn_file_actions_addinherit_np(posix_spawn_file_actions_t* actions,
                                                      int descriptor);
