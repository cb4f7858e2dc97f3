#pragma once

namespace nodo {

/// Makes what was written to the open file `descriptor` survive a power cut. Returns 0, or -1 with
/// errno set. How far `fsync` goes differs by system, hence a source file each.
int syncToDisk(int descriptor);

}  // namespace nodo
