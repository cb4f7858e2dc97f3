#pragma once

#include <NODOCore/base/TextEnum.h>
#include <NODOCore/hooks/Agents.h>

#include <array>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace nodo {

class JSONReader;
class JSONWriter;
struct HookObstacle;
struct HookSurroundings;

/// What installing or uninstalling did for one target, or for the shared script.
struct AgentHookInstallReport {
  std::string target;  ///< the target's text, or "hook-script"
  std::string path;    ///< the file that this is about
  /// Whether anything on disk was, be it only the layout of a file whose hooks were in place.
  bool changed = false;
  std::string message;
  std::optional<std::string> error;

  bool succeeded() const { return !error; }

  bool operator==(const AgentHookInstallReport&) const = default;
};

void encode(JSONWriter& to, const AgentHookInstallReport& report);
void decode(const JSONReader& from, AgentHookInstallReport& report);

/// What a person should hear of an installation or uninstallation beside its reports.
struct AgentHookChanges {
  /// The targets whose hooks were put in or taken out.
  std::set<AgentHookTarget> targets;
  /// What was removed or replaced though it may have been the person's own: for each a sentence
  /// that names the file.
  std::vector<std::string> losses;
};

/// How an installed piece compares with what this program would install.
enum class AgentHookComponentStatus { missing, notExecutable, current, outdated };

template <>
struct EnumTexts<AgentHookComponentStatus> {
  static constexpr std::array cases{
      EnumText{AgentHookComponentStatus::missing, "missing"},
      EnumText{AgentHookComponentStatus::notExecutable, "notExecutable"},
      EnumText{AgentHookComponentStatus::current, "current"},
      EnumText{AgentHookComponentStatus::outdated, "outdated"}};
};

/// The status in words.
std::string_view displayName(AgentHookComponentStatus status);

bool isCurrent(AgentHookComponentStatus status);
/// Current or outdated.
bool isInstalled(AgentHookComponentStatus status);
bool needsUpdate(AgentHookComponentStatus status);

/// What was found of one target's hooks.
struct AgentHookTargetInspection {
  AgentHookTarget target = AgentHookTarget::claude;
  std::string path;  ///< the target's configuration file
  AgentHookComponentStatus status = AgentHookComponentStatus::missing;
  /// Why the file could not be read or understood; the status is not known then, and `missing`.
  std::optional<std::string> error;

  bool operator==(const AgentHookTargetInspection&) const = default;
};

/// What was found of the shared script and of each target's hooks.
struct AgentHookSetupInspection {
  std::string hookScriptPath;
  AgentHookComponentStatus hookScriptStatus = AgentHookComponentStatus::missing;
  std::string expectedHookScriptFingerprint;
  std::optional<std::string> installedHookScriptFingerprint;  ///< absent: not readable
  std::vector<AgentHookTargetInspection> targets;

  /// Whether the script and every inspected target are current.
  bool isCurrent() const;

  /// Whether the script or a target is outdated. A script that is missing or not executable is for
  /// installing again, not for updating, and does not count.
  bool needsUpdate() const;

  std::int64_t installedTargetCount() const;
  std::int64_t currentTargetCount() const;
  std::int64_t targetCount() const;

  bool operator==(const AgentHookSetupInspection&) const = default;
};

void encode(JSONWriter& to, const AgentHookTargetInspection& inspection);
void decode(const JSONReader& from, AgentHookTargetInspection& inspection);
void encode(JSONWriter& to, const AgentHookSetupInspection& inspection);
void decode(const JSONReader& from, AgentHookSetupInspection& inspection);

/// A config.toml in which the hooks cannot be switched on without risk to the rest of it. The
/// message names the file and says what to write there by hand.
class CodexConfigError : public std::exception {
 public:
  explicit CodexConfigError(std::string message) : message_(std::move(message)) {}

  const char* what() const noexcept override { return message_.c_str(); }

  bool operator==(const CodexConfigError& other) const { return message_ == other.message_; }

 private:
  std::string message_;
};

/// Makes the agents of one user run the hook script, and undoes that.
///
/// The agents' configuration belongs to the user: other tools' hooks and settings keep their
/// values, lists their order, numbers their digits, files their mode and owner, and symbolic links
/// stay what they are. A JSON file is written anew, though, indented and with the members of each
/// object sorted by name. A file that cannot be understood, or changed without harm, is left as it
/// is and makes its target fail. What root makes in somebody's home becomes theirs. Not
/// synchronised; two processes at once do no harm, as each change of a file is made to what stands
/// in it at that instant.
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
  /// script itself cannot be written every report says so, and no agent's file is touched. Adds to
  /// `changes`, if any.
  std::vector<AgentHookInstallReport> installReportingFailures(
      const std::vector<AgentHookTarget>& targets, AgentHookChanges* changes = nullptr) const;

  /// Takes the hooks of each target away and returns a report for each, in their order. When these
  /// are all targets there are, the shared script goes too, with a last report. With a file go the
  /// folders below the home that this leaves empty. Throws at the first failure; what was done by
  /// then stays.
  std::vector<AgentHookInstallReport> uninstall(const std::vector<AgentHookTarget>& targets) const;

  /// The same, but a failure becomes that target's report and the other targets go on. The script
  /// stays when any of them failed: an agent may still run it. Adds to `changes`, if any.
  std::vector<AgentHookInstallReport> uninstallReportingFailures(
      const std::vector<AgentHookTarget>& targets, AgentHookChanges* changes = nullptr) const;

  /// Compares what is installed with what `install` would write, each target once. Changes nothing.
  /// Throws when a target's file cannot be read or understood.
  AgentHookSetupInspection inspect(const std::vector<AgentHookTarget>& targets) const;

  /// The same, but a target whose file cannot be read or understood has the error and the others
  /// go on. Adds to `obstacles` what keeps the hooks that are installed from running. Each file is
  /// read once.
  AgentHookSetupInspection inspectReportingFailures(const std::vector<AgentHookTarget>& targets,
                                                    const HookSurroundings& surroundings,
                                                    std::vector<HookObstacle>& obstacles) const;

  bool operator==(const AgentHookInstaller&) const = default;
};

}  // namespace nodo
