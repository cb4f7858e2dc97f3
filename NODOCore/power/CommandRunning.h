#pragma once

#include <NODOCore/base/Date.h>

#include <cstdint>
#include <optional>
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
  /// be started, or with ETIMEDOUT where the implementation has a limit and the tool no end: what
  /// it did by then is done.
  virtual CommandOutput run(const std::string& executable,
                            const std::vector<std::string>& arguments) const = 0;
};

/// How long a tool of the daemon's may take. Each of them answers in a fraction of a second, also
/// on a machine that is just waking up; a daemon that hangs with one keeps the lock on meanwhile.
inline constexpr Seconds toolTimeLimit{10};

/// Runs real child processes.
///
/// Standard input and the environment are inherited; every other descriptor stays out of the child.
/// The process must not ignore SIGCHLD, or the exit status is lost (std::system_error, ECHILD).
class ProcessCommandRunner : public CommandRunning {
 public:
  std::optional<Seconds> limit;  ///< time awake, after which a tool is killed; absent: none

  explicit ProcessCommandRunner(std::optional<Seconds> limit = std::nullopt) : limit(limit) {}

  CommandOutput run(const std::string& executable,
                    const std::vector<std::string>& arguments) const override;
};

}  // namespace nodo
