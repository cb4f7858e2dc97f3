#pragma once

#include <NODOCore/hooks/AgentHookInstallReport.h>
#include <NODOCore/hooks/AgentHookSetupInspection.h>
#include <NODOCore/hooks/AgentHookTarget.h>
#include <NODOCore/hooks/CodexConfigError.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace nodo {

/// Makes the agents of one user run the hook script, and undoes that.
///
/// The agents' configuration belongs to the user: other tools' hooks and settings keep their values
/// and their order, numbers their digits, files their mode and owner, and symbolic links stay what
/// they are. A file that cannot be understood, or changed without such harm, is left as it is and
/// makes its target fail. Not synchronised; two processes at once do no harm, as each change of a
/// file is made to what stands in it at that instant.
///
/// Failures are std::system_error for files, DecodingError for configuration that is not JSON and
/// CodexConfigError for a config.toml that only a person can edit.
struct AgentHookInstaller {
  /// Absent, the script path is ".nodo/nodo-agent-hook.sh" in `homeDirectory`. `homeDirectory` and
  /// `hookScriptPath` should be absolute, as agents run the script from any folder.
  explicit AgentHookInstaller(std::filesystem::path homeDirectory,
                              std::optional<std::filesystem::path> hookScriptPath = std::nullopt,
                              std::optional<std::string> nodoctlPath = std::nullopt);

  std::filesystem::path homeDirectory;
  std::filesystem::path hookScriptPath;
  std::optional<std::string> nodoctlPath;  ///< for the script; absent: the running program's path

  /// Writes the shared script and the hooks of each target, and returns a report for each, in their
  /// order. Throws at the first failure; what was done by then stays.
  std::vector<AgentHookInstallReport> install(const std::vector<AgentHookTarget>& targets) const;

  /// The same, but a failure becomes that target's report and the other targets go on. When the
  /// script itself cannot be written every report says so, and no agent's file is touched.
  std::vector<AgentHookInstallReport> installReportingFailures(
      const std::vector<AgentHookTarget>& targets) const;

  /// Takes the hooks of each target away and returns a report for each, in their order. When these
  /// are all targets there are, the shared script goes too, with a last report. Throws at the first
  /// failure; what was done by then stays.
  std::vector<AgentHookInstallReport> uninstall(const std::vector<AgentHookTarget>& targets) const;

  /// Compares what is installed with what `install` would write, each target once. Changes nothing.
  /// Throws when a target's file cannot be read or understood.
  AgentHookSetupInspection inspect(const std::vector<AgentHookTarget>& targets) const;

  bool operator==(const AgentHookInstaller&) const = default;
};

}  // namespace nodo
