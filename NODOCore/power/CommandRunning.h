#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace nodo {

/// One finished run of a system tool.
struct CommandOutput {
  std::string executable;              ///< the absolute path, as given
  std::vector<std::string> arguments;  ///< as given, without the tool's own name
  std::string standardOutput;          ///< empty when it was not valid UTF-8
  std::string standardError;           ///< likewise
  std::int32_t exitCode = 0;           ///< exit status, or the number of the signal that ended it

  bool operator==(const CommandOutput&) const = default;
};

/// Runs a system tool.
///
/// Exists so that everything that reads or drives the machine through tools can be tested with
/// scripted output. Implementations may be used from several threads at once.
class CommandRunning {
 public:
  virtual ~CommandRunning() = default;

  /// Runs `executable` (an absolute path, no shell) with `arguments` and waits for its end. A
  /// non-zero exit status is a result, not an error. Throws std::system_error when the tool cannot
  /// be started. There is no time limit: the tools that nodo runs answer at once or not at all, and
  /// a half-done power command is worse than a slow one.
  virtual CommandOutput run(const std::string& executable,
                            const std::vector<std::string>& arguments) const = 0;
};

/// Runs real child processes.
///
/// Standard input and the environment are inherited; every other descriptor stays out of the child.
/// Standard output is read to its end before standard error is, so a tool that fills the pipe of
/// its standard error (64 KiB) before it closes standard output would stall: none of nodo's tools
/// does. The process must not ignore SIGCHLD, or the exit status is lost (std::system_error,
/// ECHILD).
class ProcessCommandRunner : public CommandRunning {
 public:
  CommandOutput run(const std::string& executable,
                    const std::vector<std::string>& arguments) const override;
};

}  // namespace nodo
