#include <NODOCore/base/Text.h>
#include <NODOCore/power/ChildProcess.h>
#include <NODOCore/power/ProcessCommandRunner.h>

#include <utility>

namespace nodo {

CommandOutput ProcessCommandRunner::run(const std::string& executable,
                                        const std::vector<std::string>& arguments) const {
  ChildProcess child(executable, arguments);
  CommandOutput output{.executable = executable, .arguments = arguments};
  std::string standardOutput = child.readStandardOutput();
  std::string standardError = child.readStandardError();
  output.exitCode = child.wait();
  if (isValidUTF8(standardOutput)) {
    output.standardOutput = std::move(standardOutput);
  }
  if (isValidUTF8(standardError)) {
    output.standardError = std::move(standardError);
  }
  return output;
}

}  // namespace nodo
