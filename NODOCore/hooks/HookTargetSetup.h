#pragma once

#include <NODOCore/hooks/AgentHookInstaller.h>
#include <NODOCore/hooks/AgentHookTarget.h>

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace nodo {

/// What stands in a target's configuration file, and so how nodo comes into it.
enum class HookFileKind {
  sharedConfiguration,  ///< a JSON file with everybody's settings, into which ours are merged
  ownConfiguration,     ///< a JSON file of our own
  ownExtension,         ///< a program of our own
};

/// All that distinguishes one agent from another when hooks are installed.
struct HookTargetFacts {
  AgentHookTarget target;
  HookFileKind kind;
  std::string_view configurationFile;  ///< below the home folder
  /// Whether the agent has to be told in its config.toml, beside the configuration file, to run
  /// hooks at all.
  bool hasFeatureSwitch;
  /// Whether the agent expects hooks in a configuration file that is there, so that one which has
  /// lost its last is removed instead of left empty.
  bool dislikesEmptyFile;
  std::string_view installedMessage;
};

const HookTargetFacts& hookTargetFacts(AgentHookTarget target);

/// The file of `target` that holds its hooks.
std::filesystem::path hookConfigurationFile(AgentHookTarget target,
                                            const std::filesystem::path& homeDirectory);

/// One target's hooks: installing, uninstalling and looking at them. The shared script is not
/// touched here.

/// Where one target's hooks go, and the script that they run.
struct HookTargetSetup {
  AgentHookTarget target;
  std::filesystem::path configurationFile;
  std::filesystem::path hookScriptPath;

  /// Returns whether anything had to be installed. Nothing is changed when Codex's config.toml
  /// cannot be edited.
  bool install() const;

  /// Returns whether anything was there to remove.
  bool uninstall() const;

  AgentHookComponentStatus status() const;
};

/// The hook script where all agents find it. The file is nodo's own.

/// The installed script; nothing when it cannot be read or is not UTF-8 text.
std::optional<std::string> readHookScriptFile(const std::filesystem::path& path);

/// Whether this process may execute the file.
bool isExecutableFile(const std::filesystem::path& path);

/// Brings the script up to date, and returns whether it was not. It is executable from the instant
/// it is there, as an agent may run it at any time. Throws std::system_error.
bool writeHookScriptFile(const std::filesystem::path& path, std::string_view text);

/// Removes the script, and returns whether there was one. Throws std::system_error.
bool removeHookScriptFile(const std::filesystem::path& path);

}  // namespace nodo
