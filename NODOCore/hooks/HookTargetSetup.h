#pragma once

#include <NODOCore/hooks/AgentHookSetupInspection.h>
#include <NODOCore/hooks/AgentHookTarget.h>

#include <filesystem>

/// One target's hooks: installing, uninstalling and looking at them. The shared script is not
/// touched here.
namespace nodo {

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

}  // namespace nodo
