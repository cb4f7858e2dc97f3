#include <NODOCore/power/SpawnIsolation.h>

#include <array>

#include <fcntl.h>
#include <unistd.h>

namespace nodo {

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
