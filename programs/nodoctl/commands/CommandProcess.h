#pragma once

#include <NODOCore/base/Files.h>

#include <stdexcept>
#include <string>
#include <vector>

#include <sys/types.h>

namespace nodo::nodoctl {

/// Sees to it that a child process ends when this one does, even when this one is killed: a command
/// that runs on would no longer keep the computer awake, and nobody would pass its exit status on.
///
/// Made before the child is forked, and kept for as long as the child runs. By the thread that
/// forks.
class EndWithParent {
 public:
  /// Throws std::system_error.
  EndWithParent();
  EndWithParent(const EndWithParent&) = delete;
  EndWithParent& operator=(const EndWithParent&) = delete;
  ~EndWithParent();

  /// In the new child, before it becomes the command. Calls nothing that is not safe there.
  void inChild() const noexcept;

  /// In this process, once there is the child.
  void inParent(pid_t child);

 private:
  pid_t parent_;
  FileDescriptor guarded_;  // where the system has no means of its own: the guard sees its end
  [[maybe_unused]] pid_t guard_ = -1;  // only where the kernel does not see to it
};

/// What can be read once the process `pid`, whoever's it is, has ended, and not before. Invalid,
/// with errno set, when that cannot be had: ESRCH when there is no such process.
FileDescriptor openEndOfProcess(pid_t pid);

/// The exit statuses by which shells say that a command could not be run.
inline constexpr int commandNotFound = 127;
inline constexpr int commandNotRunnable = 126;

/// A command cannot be run: the message says which and why.
class CommandError : public std::runtime_error {
 public:
  /// For the error number of the call that failed.
  CommandError(const std::string& command, int error);

  int exitStatus() const { return exitStatus_; }

 private:
  int exitStatus_;
};

/// What may be known about `command` before it is run: throws CommandError when no program of that
/// name is found. Like a shell, it looks into the folders of `searchPath` unless there is a slash.
void checkCommand(const std::string& command, const std::string& searchPath);

/// A command that runs with this process's standard streams, in its process group, so that keys on
/// the terminal reach it as if it ran alone; it never outlives this process.
class CommandProcess {
 public:
  /// Starts `words`, of which the first is the command. Throws CommandError or std::system_error.
  explicit CommandProcess(const std::vector<std::string>& words);
  CommandProcess(const CommandProcess&) = delete;
  CommandProcess& operator=(const CommandProcess&) = delete;
  /// Kills it when it still runs.
  ~CommandProcess();

  pid_t pid() const { return pid_; }

  void send(int signal) const;

  /// Whether it has ended; `exitStatus` is then its own, or 128 and the signal that ended it.
  bool hasEnded();

  int exitStatus() const { return exitStatus_; }

 private:
  void kill() const;

  EndWithParent endWithParent_;
  pid_t pid_ = -1;
  bool ended_ = false;
  int exitStatus_ = 0;
};

}  // namespace nodo::nodoctl
