#include <NODOCore/base/Files.h>
#include <platform/linux/SmallFile.h>

#include <system_error>

#include <fcntl.h>

namespace nodo {

std::optional<std::string> readSmallFile(const std::filesystem::path& path) {
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file) {
    return std::nullopt;
  }
  try {
    return readToEnd(file, path.string());
  } catch (const std::system_error&) {
    return std::nullopt;
  }
}

}  // namespace nodo
