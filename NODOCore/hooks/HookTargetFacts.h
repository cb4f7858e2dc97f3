#pragma once

#include <NODOCore/hooks/AgentHookTarget.h>

#include <filesystem>
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

}  // namespace nodo
