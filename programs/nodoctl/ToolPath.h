#pragma once

#include <NODOCore/base/Environment.h>

#include <filesystem>
#include <optional>
#include <string>

namespace nodo::nodoctl {

/// Where the shell found the program that was started as `startedAs`: that path when it holds a
/// slash, else the program's place in PATH; nothing when it is in none. Absolute, and never the
/// target of a symbolic link: the next upgrade may move that, while the link stays.
std::optional<std::filesystem::path> toolPath(const std::string& startedAs,
                                              const Environment& environment);

/// Whether `path` is a file that this process may run.
bool isProgram(const std::filesystem::path& path);

/// `path` from the root on. Without "." in it; with ".." it stays as it is, since the folder above
/// a link is not the one that the name suggests.
std::filesystem::path absolutePath(const std::filesystem::path& path);

}  // namespace nodo::nodoctl
