#pragma once

#include <filesystem>

namespace nodo {

/// Gives the open file `to` the access-control list of the file at `from`, or takes its own away
/// when that has none, and then the other extended attributes that belong to a file rather than to
/// its content, as far as the file system and this process's rights allow.
///
/// Returns 0, or -1 with errno set when a list that is there could not be kept: without it the
/// file's mode alone may let more people in. The mode is to be set after this, which changes it.
/// Systems differ in where they keep all this, hence a source file each.
int copyFileAttributes(const std::filesystem::path& from, int to);

}  // namespace nodo
