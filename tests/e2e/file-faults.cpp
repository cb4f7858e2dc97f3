// Lets one call about files fail, as a disk, a limit or a network can at any time. Preloaded into a
// program (LD_PRELOAD), it counts the calls about what lies below the folder NODO_FAULT_FOLDER and
// writes a line for each to the file NODO_FAULT_LOG: its function, a tab and the path. The call
// number NODO_FAULT_CALL, from 1, is not made but fails with the error number NODO_FAULT_ERROR.

#include <array>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <type_traits>

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace {

std::string_view environmentText(const char* name) {
  const char* text = std::getenv(name);
  if (text == nullptr) {
    std::fprintf(stderr, "file-faults: %s is not set\n", name);
    std::_Exit(99);
  }
  return text;
}

int environmentNumber(const char* name) {
  return std::atoi(environmentText(name).data());
}

bool isBelowFolder(std::string_view path) {
  static const std::string_view folder = environmentText("NODO_FAULT_FOLDER");
  return path.starts_with(folder);
}

std::string pathOf(int descriptor) {
  std::array<char, PATH_MAX> path{};
  const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
  static const auto next = reinterpret_cast<decltype(&::readlink)>(::dlsym(RTLD_NEXT, "readlink"));
  const ssize_t size = next(link.c_str(), path.data(), path.size());
  return size < 0 ? "" : std::string(path.data(), static_cast<std::size_t>(size));
}

std::string pathOf(const char* path) {
  return path;
}

// Whether this call is the one to fail.
bool mustFail(const char* function, const std::string& path) {
  static std::FILE* const log = std::fopen(environmentText("NODO_FAULT_LOG").data(), "we");
  static const int chosen = environmentNumber("NODO_FAULT_CALL");
  static int count = 0;
  if (!isBelowFolder(path)) {
    return false;
  }
  std::fprintf(log, "%s\t%s\n", function, path.c_str());
  std::fflush(log);
  if (++count != chosen) {
    return false;
  }
  errno = environmentNumber("NODO_FAULT_ERROR");
  return true;
}

// Makes the call of the C library's `function`, which is about `file`, unless it has to fail.
template <class Function, class File, class... Arguments>
auto faulty(Function*, const char* name, File file, Arguments... arguments) {
  using Result = std::invoke_result_t<Function*, Arguments...>;
  const int before = errno;
  if (mustFail(name, pathOf(file))) {
    if constexpr (std::is_pointer_v<Result>) {
      return Result(nullptr);
    } else {
      return Result(-1);
    }
  }
  errno = before;
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name))(arguments...);
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  return faulty(&::open, "open", path, path, flags, mode);
}

// The standard library opens folders by it, by their whole paths.
int openat(int folder, const char* path, int flags, ...) {
  return faulty(&::openat, "openat", path, folder, path, flags);
}

ssize_t read(int file, void* buffer, std::size_t size) {
  return faulty(&::read, "read", file, file, buffer, size);
}

ssize_t write(int file, const void* buffer, std::size_t size) {
  return faulty(&::write, "write", file, file, buffer, size);
}

int close(int file) {
  return faulty(&::close, "close", file, file);
}

int flock(int file, int operation) {
  return faulty(&::flock, "flock", file, file, operation);
}

int fsync(int file) {
  return faulty(&::fsync, "fsync", file, file);
}

int fstat(int file, struct stat* found) {
  return faulty(&::fstat, "fstat", file, file, found);
}

int fchmod(int file, mode_t mode) {
  return faulty(&::fchmod, "fchmod", file, file, mode);
}

int fchown(int file, uid_t owner, gid_t group) {
  return faulty(&::fchown, "fchown", file, file, owner, group);
}

int stat(const char* path, struct stat* found) {
  return faulty(&::stat, "stat", path, path, found);
}

int lstat(const char* path, struct stat* found) {
  return faulty(&::lstat, "lstat", path, path, found);
}

int faccessat(int folder, const char* path, int rights, int flags) {
  return faulty(&::faccessat, "faccessat", path, folder, path, rights, flags);
}

ssize_t readlink(const char* path, char* buffer, std::size_t size) {
  return faulty(&::readlink, "readlink", path, path, buffer, size);
}

DIR* fdopendir(int file) {
  return faulty(&::fdopendir, "fdopendir", file, file);
}

dirent* readdir(DIR* folder) {
  return faulty(&::readdir, "readdir", ::dirfd(folder), folder);
}

int mkdir(const char* path, mode_t mode) {
  return faulty(&::mkdir, "mkdir", path, path, mode);
}

int rename(const char* from, const char* path) {
  return faulty(&::rename, "rename", path, from, path);
}

int unlink(const char* path) {
  return faulty(&::unlink, "unlink", path, path);
}

ssize_t lgetxattr(const char* path, const char* name, void* value, std::size_t size) {
  return faulty(&::lgetxattr, "lgetxattr", path, path, name, value, size);
}

ssize_t llistxattr(const char* path, char* names, std::size_t size) {
  return faulty(&::llistxattr, "llistxattr", path, path, names, size);
}

int fsetxattr(int file, const char* name, const void* value, std::size_t size, int flags) {
  return faulty(&::fsetxattr, "fsetxattr", file, file, name, value, size, flags);
}

int fremovexattr(int file, const char* name) {
  return faulty(&::fremovexattr, "fremovexattr", file, file, name);
}
}
