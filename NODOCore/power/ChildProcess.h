#pragma once

#include <NODOCore/base/Date.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace nodo {

/// What a child process left behind.
struct EndedProcess {
  std::string standardOutput;  ///< the bytes as they came
  std::string standardError;
  std::int32_t exitCode = 0;  ///< exit status, or the number of the signal that ended it
};

/// Starts `executable`, directly and with this process's environment, and waits for its end and for
/// the end of what it and its own children write. The child begins with no signal blocked and the
/// default action for SIGPIPE, whatever this process has changed. Throws std::system_error with the
/// path in its text. Safe from several threads at once.
///
/// With a `limit` the child leads a process group of its own. Where it, or a process that holds its
/// streams, has no end within that time awake, the group is killed and the error is ETIMEDOUT. What
/// the tool did by then is done.
EndedProcess runToEnd(const std::string& executable, const std::vector<std::string>& arguments,
                      std::optional<Seconds> limit);

}  // namespace nodo
