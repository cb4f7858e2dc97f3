#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/base/Environment.h>
#include <NODOCore/helper/HelperConnection.h>
#include <platform/HostMachine.h>
#include <programs/nodoctl/terminal/SignalQueue.h>
#include <programs/nodoctl/terminal/Terminal.h>
#include <programs/shared/ProgramFrame.h>

#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace nodo::nodoctl {

/// All that nodoctl has of the world, so that tests can set it.
struct ToolContext {
  Environment environment;
  HostMachine machine;
  /// As the platform's `helperConnecting`.
  std::function<std::shared_ptr<const HelperConnecting>(const std::optional<std::string>& bus)>
      helperConnecting;
  std::function<Date()> now;
  std::ostream& output;
  std::ostream& error;
  /// Where `output` goes, if that may be a terminal.
  std::shared_ptr<Terminal> terminal = {};
  std::function<std::unique_ptr<SignalQueue>(const std::vector<int>& signals)> catchSignals =
      nodoctl::catchSignals;
  std::string startedAs = {};  ///< the program's name on the command line

  Console console() const { return {.program = "nodoctl", .output = output, .error = error}; }
};

/// Runs nodoctl with `arguments` (without the program's name) and returns its exit status: 0 for
/// success, 2 for a wrong use, 1 for any other failure, and that of the command that "run" runs.
/// The answer is written whole or not at all.
int runTool(const std::vector<std::string>& arguments, const ToolContext& context);

}  // namespace nodo::nodoctl
