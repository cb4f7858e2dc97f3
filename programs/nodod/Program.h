#pragma once

#include <NODOCore/base/Environment.h>
#include <NODOCore/base/Files.h>
#include <NODOCore/daemon/LockLife.h>
#include <platform/DaemonMachine.h>
#include <platform/HostMachine.h>
#include <programs/shared/ProgramFrame.h>

#include <filesystem>
#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace nodo::nodod {

/// Keeps a second daemon away from the same state while it lives: the state has one writer. The
/// system frees it when the process ends, however it does.
class StateFolderLock {
 public:
  /// Makes the folder, readable for its owner only (the state names people's projects), unless it
  /// is there. Throws std::runtime_error when another process has it, std::system_error when there
  /// can be none.
  explicit StateFolderLock(const std::filesystem::path& folder);

 private:
  FileDescriptor file_;
};

/// All that nodod has of the world, so that tests can set it.
struct DaemonContext {
  Environment environment;
  std::function<HostMachine(PowerChoice choice)> machine;
  std::function<SleepLock(PowerChoice choice)> makeSleepLock;
  std::function<std::unique_ptr<DaemonLoop>(const std::optional<std::string>& bus,
                                            const DaemonLog& log)>
      makeLoop;
  std::function<std::filesystem::path(const Environment& environment,
                                      const std::optional<std::string>& bus)>
      stateFolder;
  std::filesystem::path settingsFile;  ///< where the system has it
  std::function<Moment()> now;
  /// Has the file at `path` take the place of what `error` writes to. Throws std::system_error.
  std::function<void(const std::string& path)> useLog;
  std::ostream& output;
  std::ostream& error;

  Console console() const { return {.program = "nodod", .output = output, .error = error}; }
};

/// Runs nodod with `arguments` (without the program's name) and returns its exit status: 0 after a
/// signal that asked it to end, or `--once`, with the lock off; 2 for a wrong use, 1 for any other
/// failure.
int runDaemon(const std::vector<std::string>& arguments, const DaemonContext& context);

}  // namespace nodo::nodod
