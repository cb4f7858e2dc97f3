#pragma once

#include <NODOCore/base/Files.h>

#include <cstdint>
#include <string>
#include <vector>

#include <sys/types.h>

namespace nodo {

/// A started child process with its standard output and standard error at the other end of a pipe
/// each.
///
/// Waits for the child when it is destroyed before `wait` was called, so that no path leaves a
/// zombie behind. Not thread-safe; different objects may be used from different threads.
class ChildProcess {
 public:
  /// Starts `executable`, directly and with this process's environment. The child begins with no
  /// signal blocked and the default action for SIGPIPE, whatever this process has changed. Throws
  /// std::system_error with the path in its text.
  ChildProcess(const std::string& executable, const std::vector<std::string>& arguments);
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ~ChildProcess();

  /// What the child writes, to the end. Blocks until no process holds the pipe's other end.
  std::string readStandardOutput();
  std::string readStandardError();

  /// Waits for the child's end: its exit status, or the number of the signal that ended it. Once:
  /// afterwards the number may be another process's.
  std::int32_t wait();

 private:
  std::string executable_;
  FileDescriptor standardOutput_;
  FileDescriptor standardError_;
  pid_t pid_ = -1;
};

}  // namespace nodo
