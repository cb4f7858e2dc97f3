#pragma once

#include <NODOCore/base/FileDescriptor.h>

#include <spawn.h>

/// What keeps descriptors out of child processes. How that is done without a race against other
/// threads that start children at the same time differs by system, hence a source file each.
namespace nodo {

struct Pipe {
  FileDescriptor readEnd;
  FileDescriptor writeEnd;
};

/// A pipe that no child inherits unless it is given an end on purpose. Throws std::system_error.
Pipe makePrivatePipe();

/// Further flags for posix_spawnattr_setflags that isolate a child.
short spawnIsolationFlags();

/// Completes the file actions of a child whose standard streams are in place: it gets them and no
/// other descriptor, not even one that this process was handed to pass on.
void closeOtherDescriptors(posix_spawn_file_actions_t& actions);

}  // namespace nodo
