#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

/// The hook script where all agents find it. The file is nodo's own.
namespace nodo {

/// The installed script; nothing when it cannot be read or is not UTF-8 text.
std::optional<std::string> readHookScriptFile(const std::filesystem::path& path);

/// Whether this process may execute the file.
bool isExecutableFile(const std::filesystem::path& path);

/// Brings the script up to date, and returns whether it was not. It is executable from the instant
/// it is there, as an agent may run it at any time. Throws std::system_error.
bool writeHookScriptFile(const std::filesystem::path& path, std::string_view text);

/// Removes the script, and returns whether there was one. Throws std::system_error.
bool removeHookScriptFile(const std::filesystem::path& path);

}  // namespace nodo
