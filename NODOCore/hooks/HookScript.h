#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace nodo {

/// `text` as one word of a POSIX shell, in single quotes, whatever it holds. Pure.
std::string shellQuoted(std::string_view text);

/// The 64-bit FNV-1a hash of the bytes of `text` as 16 hexadecimal digits, by which people and
/// reports tell two versions of a file apart. No protection against somebody who wants two texts to
/// have the same one.
std::string fingerprint(std::string_view text);

/// The shell script that agents run at their events: it asks `nodoctl` for another 20 minutes, at
/// most every two minutes, and starts caffeinate when nodo cannot be used. Whatever happens it
/// prints nothing and exits 0.
///
/// It tries the `nodoctl` of an installed application first and then the one at `nodoctlPath`,
/// which is taken without the white space around it; absent, the path by which this program was
/// started counts. So the text depends on where that is, and an installed script of another
/// `nodoctl` differs: that is how it is found to be outdated. Equal arguments give equal bytes.
std::string hookScriptText(const std::optional<std::string>& nodoctlPath);

/// The installed script, where all agents find it; nothing when it cannot be read or is not UTF-8
/// text.
std::optional<std::string> readHookScriptFile(const std::filesystem::path& path);

/// Whether this process may execute the file.
bool isExecutableFile(const std::filesystem::path& path);

/// Brings the script up to date, and returns whether it was not. It is executable from the instant
/// it is there, as an agent may run it at any time. Throws std::system_error.
bool writeHookScriptFile(const std::filesystem::path& path, std::string_view text);

/// Removes the script, and returns whether there was one. Throws std::system_error.
bool removeHookScriptFile(const std::filesystem::path& path);

/// The extension that makes Pi run the script at `hookScriptPath`, as Pi loads extensions instead
/// of running commands. Equal paths give equal bytes.
std::string piExtensionText(const std::filesystem::path& hookScriptPath);

}  // namespace nodo
