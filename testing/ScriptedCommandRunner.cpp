#include <testing/ScriptedCommandRunner.h>

#include <cerrno>
#include <system_error>

namespace nodo::test {

void ScriptedCommandRunner::answer(const std::string& commandLine,
                                   const std::string& standardOutput, std::int32_t exitCode,
                                   const std::string& standardError) {
  answers_[commandLine] = {
      .standardOutput = standardOutput, .standardError = standardError, .exitCode = exitCode};
}

CommandOutput ScriptedCommandRunner::run(const std::string& executable,
                                         const std::vector<std::string>& arguments) const {
  std::string commandLine = executable;
  for (const std::string& argument : arguments) {
    commandLine += " " + argument;
  }
  commandLines_.push_back(commandLine);
  if (missing_.contains(executable)) {
    throw std::system_error(ENOENT, std::generic_category(), "Unable to run " + executable);
  }
  CommandOutput output{.executable = executable, .arguments = arguments};
  if (const auto answer = answers_.find(commandLine); answer != answers_.end()) {
    output.standardOutput = answer->second.standardOutput;
    output.standardError = answer->second.standardError;
    output.exitCode = answer->second.exitCode;
  }
  return output;
}

}  // namespace nodo::test
