#include <NODOCore/base/Files.h>
#include <NODOCore/base/System.h>

#include <array>
#include <cerrno>
#include <ctime>

#include <copyfile.h>
#include <crt_externs.h>
#include <fcntl.h>
#include <unistd.h>

namespace nodo {

namespace {

Seconds timeOf(clockid_t clock) {
  timespec time{};
  ::clock_gettime(clock, &time);
  return Seconds(static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9);
}

}  // namespace

int syncToDisk(int descriptor) {
  // On Darwin fsync only reaches the drive's cache. Some file systems (network, FAT) refuse the
  // full sync; then fsync is the best there is.
  return ::fcntl(descriptor, F_FULLFSYNC) == 0 ? 0 : ::fsync(descriptor);
}

int copyFileAttributes(const std::filesystem::path& from, int to) {
  const FileDescriptor file(::open(from.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  if (!file || (::fcopyfile(file.get(), to, nullptr, COPYFILE_ACL) != 0 && errno != ENOTSUP)) {
    return -1;
  }
  // The system keeps some attributes to itself.
  const bool isKept = ::fcopyfile(file.get(), to, nullptr, COPYFILE_XATTR) == 0 ||
                      errno == ENOTSUP || errno == EPERM || errno == EACCES;
  return isKept ? 0 : -1;
}

std::string startedPath() {
  const char* const* arguments = *_NSGetArgv();
  return arguments != nullptr && arguments[0] != nullptr ? arguments[0] : "";
}

Seconds awakeTime() {
  return timeOf(CLOCK_UPTIME_RAW);
}

Seconds runningTime() {
  return timeOf(CLOCK_MONOTONIC_RAW);
}

Pipe makePrivatePipe() {
  std::array<int, 2> ends{-1, -1};
  if (::pipe(ends.data()) != 0) {
    throwErrno("Unable to make", "a pipe");
  }
  Pipe pipe{FileDescriptor(ends[0]), FileDescriptor(ends[1])};
  // For children that others start; our own are covered by the flag below.
  ::fcntl(ends[0], F_SETFD, FD_CLOEXEC);
  ::fcntl(ends[1], F_SETFD, FD_CLOEXEC);
  return pipe;
}

short spawnIsolationFlags() {
  return POSIX_SPAWN_CLOEXEC_DEFAULT;
}

void closeOtherDescriptors(posix_spawn_file_actions_t& actions) {
  // The flag closes whatever the actions do not name.
  ::posix_spawn_file_actions_addinherit_np(&actions, STDIN_FILENO);
}

}  // namespace nodo
