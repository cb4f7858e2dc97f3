#include <NODOCore/base/System.h>

#include <array>
#include <cerrno>
#include <ctime>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace nodo {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view label = "security.selinux";

// What the kernel keeps about content (security.ima, security.capability) must not come with other
// content; labels belong to the file.
bool belongsToTheFile(std::string_view name) {
  return name.starts_with("user.") || name == label;
}

// One of a file's texts of unknown length, read by `read` into a buffer; nothing with errno set.
template <class Read>
std::optional<std::string> sized(const Read& read) {
  std::string text;
  for (;;) {
    const ssize_t size = read(nullptr, 0);
    if (size < 0) {
      return std::nullopt;
    }
    text.resize(static_cast<std::size_t>(size));
    const ssize_t count = size == 0 ? 0 : read(text.data(), text.size());
    if (count >= 0) {
      text.resize(static_cast<std::size_t>(count));
      return text;
    }
    if (errno != ERANGE) {  // it grew in between
      return std::nullopt;
    }
  }
}

std::optional<std::string> attribute(const fs::path& file, const char* name) {
  return sized([&](char* buffer, std::size_t size) {
    return ::lgetxattr(file.c_str(), name, buffer, size);
  });
}

// Whether errno says that there is nothing to keep: none, or none on this file system.
bool isNothingThere() {
  return errno == ENODATA || errno == ENOTSUP;
}

// Only a system's policy may let this process set a label; the new file has the one that it gives.
bool maySetNoLabel(std::string_view name) {
  return name == label && (errno == EPERM || errno == EACCES);
}

int copyOtherAttributes(const fs::path& from, int to) {
  const auto names = sized(
      [&](char* buffer, std::size_t size) { return ::llistxattr(from.c_str(), buffer, size); });
  if (!names) {
    return isNothingThere() ? 0 : -1;
  }
  for (std::size_t begin = 0; begin < names->size();) {
    const std::string name = names->c_str() + begin;
    begin += name.size() + 1;
    if (!belongsToTheFile(name)) {
      continue;
    }
    const auto value = attribute(from, name.c_str());
    const bool isKept = value
                            ? ::fsetxattr(to, name.c_str(), value->data(), value->size(), 0) == 0 ||
                                  errno == ENOTSUP || maySetNoLabel(name)
                            : isNothingThere();
    if (!isKept) {
      return -1;
    }
  }
  return 0;
}

Seconds timeOf(clockid_t clock) {
  timespec time{};
  ::clock_gettime(clock, &time);
  return Seconds(static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9);
}

}  // namespace

int syncToDisk(int descriptor) {
  return ::fsync(descriptor);
}

int copyFileAttributes(const fs::path& from, int to) {
  constexpr const char* accessControlList = "system.posix_acl_access";
  if (const auto list = attribute(from, accessControlList)) {
    if (::fsetxattr(to, accessControlList, list->data(), list->size(), 0) != 0) {
      return -1;
    }
  } else if (!isNothingThere() ||
             // The folder may have given the new file one.
             (::fremovexattr(to, accessControlList) != 0 && !isNothingThere())) {
    return -1;
  }
  return copyOtherAttributes(from, to);
}

std::string startedPath() {
  std::ifstream arguments("/proc/self/cmdline", std::ios::binary);
  std::string path;
  std::getline(arguments, path, '\0');
  return path;
}

Seconds awakeTime() {
  return timeOf(CLOCK_MONOTONIC);
}

Seconds runningTime() {
  return timeOf(CLOCK_BOOTTIME);
}

Pipe makePrivatePipe() {
  std::array<int, 2> ends{-1, -1};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
    throwErrno("Unable to make", "a pipe");
  }
  return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

short spawnIsolationFlags() {
  return 0;
}

void closeOtherDescriptors(posix_spawn_file_actions_t& actions) {
  ::posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
}

}  // namespace nodo
