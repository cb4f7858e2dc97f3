#pragma once

#include <NODOCore/power/CommandRunning.h>

#include <map>
#include <set>
#include <string>
#include <vector>

namespace nodo::test {

/// Answers command lines with what a test has laid down, and remembers which were run. A command
/// line without an answer prints nothing and exits 0. Not thread-safe.
class ScriptedCommandRunner : public CommandRunning {
 public:
  /// The answer to "executable argument argument".
  void answer(const std::string& commandLine, const std::string& standardOutput,
              std::int32_t exitCode = 0, const std::string& standardError = "");

  /// From now on `executable` cannot be started (ENOENT).
  void removeTool(const std::string& executable) { missing_.insert(executable); }

  CommandOutput run(const std::string& executable,
                    const std::vector<std::string>& arguments) const override;

  /// The command lines that were asked for, in order, those that could not be started included.
  const std::vector<std::string>& commandLines() const { return commandLines_; }

 private:
  struct Answer {
    std::string standardOutput;
    std::string standardError;
    std::int32_t exitCode = 0;
  };

  std::map<std::string, Answer> answers_;
  std::set<std::string> missing_;
  mutable std::vector<std::string> commandLines_;
};

}  // namespace nodo::test
