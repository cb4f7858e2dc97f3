#include <NODOCore/base/Files.h>
#include <NODOCore/hooks/AgentHookLogInspector.h>
#include <programs/nodo-menu/HookLog.h>

#include <algorithm>
#include <string>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace nodo::menu {
namespace {

constexpr std::uint64_t mostBytes = 65536;  // hundreds of lines

// The log lies where others may put a pipe in its place, which would never be open.
FileDescriptor openFile(const std::filesystem::path& path, std::uint64_t& size) {
  FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));

  struct stat status {};

  const bool isFile =
      file && ::fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode) && status.st_size > 0;
  size = isFile ? static_cast<std::uint64_t>(status.st_size) : 0;
  return isFile ? std::move(file) : FileDescriptor();
}

}  // namespace

HookLog::HookLog(std::filesystem::path path) : path_(std::move(path)) {
  openFile(path_, known_);
}

bool HookLog::tellsOfFallback() {
  std::uint64_t size = 0;
  const FileDescriptor file = openFile(path_, size);
  const std::uint64_t known = std::exchange(known_, size);
  // A shorter one has begun anew.
  const std::uint64_t added = size < known ? size : size - known;
  std::string text(static_cast<std::size_t>(std::min(added, mostBytes)), '\0');
  if (text.empty()) {
    return false;
  }
  const ssize_t got =
      ::pread(file.get(), text.data(), text.size(), static_cast<off_t>(size - text.size()));
  text.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
  return text.find(AgentHookLogInspector::fallbackStartedMarker) != std::string::npos ||
         text.find(AgentHookLogInspector::fallbackResolvedMarker) != std::string::npos;
}

}  // namespace nodo::menu
