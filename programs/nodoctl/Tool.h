#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/base/Environment.h>
#include <NODOCore/helper/HelperConnection.h>
#include <NODOCore/hooks/HookObstacles.h>
#include <platform/HelperMachine.h>
#include <platform/HostMachine.h>
#include <programs/nodoctl/terminal/Terminal.h>
#include <programs/shared/ProgramFrame.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace nodo::nodoctl {

/// What a command has to say.
struct Answer {
  std::string output = {};              ///< for standard output, whole
  std::vector<std::string> hints = {};  ///< for standard error, a line each
  int exitStatus = exitSuccess;
  /// In one sentence, why a timer was not set or not ended as it should have been.
  std::optional<std::string> failure = {};
};

/// All that nodoctl has of the world, so that tests can set it.
struct ToolContext {
  Environment environment;
  HostMachine machine;
  /// As the platform's `helperConnecting`.
  std::function<std::shared_ptr<const HelperConnecting>(const std::optional<std::string>& bus)>
      helperConnecting;
  /// As the platform's.
  std::function<std::optional<std::string>()> refusalOfThisProgram = [] { return std::nullopt; };
  /// As the platform's.
  std::function<DaemonStanding(const std::optional<std::string>& bus, Seconds limit)>
      daemonStanding = [](const auto&, Seconds) { return DaemonStanding(); };
  /// As the platform's.
  std::function<std::optional<SettingsReport>(const std::optional<std::string>& bus, Seconds limit)>
      daemonSettings = [](const auto&, Seconds) { return std::nullopt; };
  /// As the platform's.
  std::function<std::unique_ptr<ChangeNews>(const std::optional<std::string>& bus, Seconds limit)>
      listenForChanges = [](const auto&, Seconds) { return nullptr; };
  std::string_view restartCommand = {};  ///< as the platform's
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

/// That of this process on this system, without a terminal. `patience` is for each look at the
/// machine; `startedAs` as there.
ToolContext systemContext(std::chrono::milliseconds patience, std::string startedAs);

/// Runs nodoctl with `arguments` (without the program's name) and returns its exit status: 0 for
/// success, 2 for a wrong use, 1 for any other failure, and that of the command that "run" runs.
/// The answer is written whole or not at all.
int runTool(const std::vector<std::string>& arguments, const ToolContext& context);

/// Where the shell found the program that this is: the path by which it was started when that holds
/// a slash, else its place in PATH; nothing when it is in no folder of that. Absolute, and never
/// the target of a symbolic link: the next upgrade may move that, while the link stays.
std::optional<std::filesystem::path> toolPath(const ToolContext& context);

/// The user's home folder, absolute; nothing when HOME does not name one.
std::optional<std::filesystem::path> homeFolder(const Environment& environment);

/// Where agents are taken to run: in this environment and in the working folder.
HookSurroundings hookSurroundings(const Environment& environment);

/// Where a shell looks for the program `name`, in this order: there itself when it holds a slash,
/// else in each folder of `searchPath`, of which an empty one is the working folder.
std::vector<std::filesystem::path> placesOfProgram(const std::string& name,
                                                   std::string_view searchPath);

/// Whether `path` is a file that this process may run.
bool isProgram(const std::filesystem::path& path);

/// `path` from the root on. Without "." in it; with ".." it stays as it is, since the folder above
/// a link is not the one that the name suggests.
std::filesystem::path absolutePath(const std::filesystem::path& path);

}  // namespace nodo::nodoctl
