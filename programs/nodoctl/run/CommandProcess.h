#pragma once

#include <programs/nodoctl/run/EndWithParent.h>

#include <stdexcept>
#include <string>
#include <vector>

#include <sys/types.h>

namespace nodo::nodoctl {

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
