#pragma once

// What nodo's sources for Darwin use of its header of this name; see DarwinNames.h.

// NOLINTNEXTLINE(readability-identifier-naming, bugprone-reserved-identifier): the system's own
// name
extern "C" char*** _NSGetArgv();
