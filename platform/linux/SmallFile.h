#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace nodo {

/// The content of one of the kernel's files, or nothing when it cannot be read: an absent file and
/// a device that does not answer mean the same to a reader of the machine's condition.
std::optional<std::string> readSmallFile(const std::filesystem::path& path);

}  // namespace nodo
