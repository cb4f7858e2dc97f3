#pragma once

#include <NODOCore/base/Environment.h>
#include <NODOCore/base/JSONValue.h>
#include <NODOCore/hooks/Agents.h>

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What keeps hooks that are installed from running, as far as files tell. Files are only read, no
/// program is run; what cannot be read or understood is no obstacle.
namespace nodo {

enum class HookObstacleKind {
  scriptMissing,        ///< agents run a script that is not there or not executable
  toolMissing,          ///< the script finds no nodoctl
  switchedOff,          ///< the agent's settings switch hooks off
  notTrusted,           ///< the agent has not been told that it may run them
  configuredElsewhere,  ///< the agent reads its configuration from another folder
};

/// One of them, with the place where it lies: the script, the nodoctl that was expected, the file
/// that says so, or the other folder.
struct HookObstacle {
  HookObstacleKind kind = HookObstacleKind::scriptMissing;
  std::optional<AgentHookTarget> target;  ///< absent: it concerns every agent
  std::string path;

  bool operator==(const HookObstacle&) const = default;
};

/// Where agents run, beside the home that they are configured in.
struct HookSurroundings {
  Environment environment;              ///< taken for that of the agents
  std::filesystem::path workingFolder;  ///< whose own settings count, too; empty: none do
  std::filesystem::path root = "/";     ///< of the system's folders
};

/// The programs that the hook script tries as nodoctl, in its order; none when the text is none of
/// nodo's. Pure.
std::vector<std::filesystem::path> nodoctlCandidates(std::string_view script,
                                                     const std::filesystem::path& home);

/// What keeps the script at `path`, whose text is `installed` (absent: it cannot be read), from
/// reaching nodoctl.
std::optional<HookObstacle> obstacleOfScript(const std::filesystem::path& path,
                                             const std::optional<std::string>& installed,
                                             const std::filesystem::path& home,
                                             const HookSurroundings& surroundings);

/// What keeps an agent from running the hooks that `configuration`, the content of its
/// configuration file below `home`, holds; an empty object for a file that is no JSON.
std::optional<HookObstacle> obstacleOfTarget(AgentHookTarget target, const JSONValue& configuration,
                                             const std::filesystem::path& home,
                                             const HookSurroundings& surroundings);

}  // namespace nodo
