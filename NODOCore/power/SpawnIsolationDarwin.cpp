#include <NODOCore/power/SpawnIsolation.h>

#include <array>

#include <fcntl.h>
#include <unistd.h>

namespace nodo {

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
