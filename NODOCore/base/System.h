#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/base/Files.h>

#include <filesystem>
#include <string>

#include <spawn.h>

/// What POSIX leaves to each system, in a source file for each of them.
namespace nodo {

/// Makes what was written to the open file `descriptor` survive a power cut. Returns 0, or -1 with
/// errno set.
int syncToDisk(int descriptor);

/// Gives the open file `to` the access-control list of the file at `from`, or takes its own away
/// when that has none, and then the other extended attributes that belong to a file rather than to
/// its content, those aside that the system keeps to itself.
///
/// Returns 0, or -1 with errno set when what is there, or may be, could not be kept: without its
/// list the file's mode alone may let more people in. The mode is to be set after this, which
/// changes it.
int copyFileAttributes(const std::filesystem::path& from, int to);

/// The path by which this program was started (its argument 0); empty when it was given none.
std::string startedPath();

// ---- clocks that nobody sets, from some instant on

/// How long this machine has been awake: stands still while it sleeps.
Seconds awakeTime();

/// How long it has been running, asleep or awake.
Seconds runningTime();

// ---- what keeps descriptors out of child processes, without a race against other threads that
// start children at the same time

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
