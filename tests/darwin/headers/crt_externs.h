#pragma once

// What nodo's sources for Darwin use of its header of this name; see DarwinNames.h.

// The system's own name, which no rule of ours can change.
extern "C" char*** _NSGetArgv();  // NOLINT(readability-identifier-naming)
