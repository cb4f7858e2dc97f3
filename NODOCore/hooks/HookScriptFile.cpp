#include <NODOCore/base/FileDescriptor.h>
#include <NODOCore/base/Files.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/hooks/HookScriptFile.h>

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

namespace nodo {

std::optional<std::string> readHookScriptFile(const std::filesystem::path& path) {
  try {
    auto content = readFile(path);
    return content && isValidUTF8(*content) ? content : std::nullopt;
  } catch (const std::system_error&) {
    return std::nullopt;
  }
}

bool isExecutableFile(const std::filesystem::path& path) {
  return ::faccessat(AT_FDCWD, path.c_str(), X_OK, AT_EACCESS) == 0;
}

bool writeHookScriptFile(const std::filesystem::path& path, std::string_view text) {
  if (readHookScriptFile(path) == text && isExecutableFile(path)) {
    return false;
  }
  makeFolder(path.parent_path());
  replaceFile(path, text, std::filesystem::perms(0755));
  return true;
}

bool removeHookScriptFile(const std::filesystem::path& path) {
  if (::unlink(path.c_str()) == 0) {
    return true;
  }
  if (errno != ENOENT && errno != ENOTDIR) {
    throwErrno("Unable to remove", path.string());
  }
  return false;
}

}  // namespace nodo
