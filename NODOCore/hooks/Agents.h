#pragma once

#include <NODOCore/base/TextEnum.h>

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace nodo {

/// The coding agents that nodo knows, as kinds of processes.
enum class AgentKind { claudeCode, codex, grokBuild, pi };

template <>
struct EnumTexts<AgentKind> {
  static constexpr std::array cases{
      EnumText{AgentKind::claudeCode, "claudeCode"}, EnumText{AgentKind::codex, "codex"},
      EnumText{AgentKind::grokBuild, "grokBuild"}, EnumText{AgentKind::pi, "pi"}};
};

/// The same agents, as targets that hooks are installed for.
enum class AgentHookTarget { claude, codex, grok, pi };

template <>
struct EnumTexts<AgentHookTarget> {
  static constexpr std::array cases{
      EnumText{AgentHookTarget::claude, "claude"}, EnumText{AgentHookTarget::codex, "codex"},
      EnumText{AgentHookTarget::grok, "grok"}, EnumText{AgentHookTarget::pi, "pi"}};
};

/// Something by which a running process is known as an agent. It is looked for in lower case.
struct AgentSign {
  enum class Place { name, wholeCommand, commandBegin, commandEnd, inCommand };

  Place place = Place::name;  ///< the name is the last component of the executable's path
  std::string_view text;      ///< lower-case ASCII, not empty
};

/// What an agent's configuration file is, and so how nodo comes into it.
enum class HookFileKind {
  sharedConfiguration,  ///< a JSON file with everybody's settings, into which ours are merged
  ownConfiguration,     ///< a JSON file of our own
  ownExtension,         ///< Pi's extension, a program of our own
};

/// An agent: all that distinguishes it from the others. Whatever is said or done for each agent
/// follows from its row in the one table of these, in Agents.cpp.
struct Agent {
  AgentKind kind = AgentKind::claudeCode;
  AgentHookTarget target = AgentHookTarget::claude;
  /// As people read it and as the hook script, between double quotes, names the requester.
  std::string_view displayName;

  /// Each of these makes a process the agent.
  std::vector<AgentSign> signs;
  /// Where there are any, the name is a sign only together with one of these.
  std::vector<AgentSign> signsBesideName;
  /// Whether there is a desktop application that looks like the agent and is none, so that nothing
  /// inside of an application's bundle is the agent.
  bool hasLookalikeApplication = false;
  /// A word of the command line with which the agent only waits for other programs' work, for days
  /// if need be; may be empty.
  std::string_view serviceWord;

  /// The event at which a tool begins.
  std::string_view toolEvent = "PreToolUse";

  std::string_view configurationFile;  ///< that holds the hooks, below the home folder
  /// The variable that names another folder for that file; may be empty.
  std::string_view folderVariable;
  HookFileKind fileKind = HookFileKind::sharedConfiguration;
  /// Whether the agent has to be told in its config.toml, beside the configuration file, to run
  /// hooks at all.
  bool hasFeatureSwitch = false;
  /// Whether a configuration file that has lost its last hook is removed instead of left empty, as
  /// the agent complains of one without hooks.
  bool removesEmptiedFile = false;

  std::string_view installedMessage = "installed";
  /// What a person has to do, or to know, before the agent runs its hooks; may be empty.
  std::string_view stepAfterInstalling;
  /// What is left behind on purpose; may be empty.
  std::string_view leftAfterUninstalling;
  /// What to know where the file still holds other hooks after uninstalling; may be empty.
  std::string_view noteOnOtherHooks;
};

/// Every agent once, in the order in which a process is tested for them: it is the first whose sign
/// it shows.
const std::vector<Agent>& allAgents();

const Agent& agentOf(AgentKind kind);
const Agent& agentOf(AgentHookTarget target);

/// The agent whose hooks ask under exactly this name; nullptr for one of nobody's.
const Agent* agentAskingAs(std::string_view name);

/// The agent's name as people read it, e.g. "Claude Code".
std::string_view displayName(AgentKind kind);
std::string_view displayName(AgentHookTarget target);

/// The target with exactly this text. Throws NODOError::invalidCommand("hook target " + text).
AgentHookTarget parseAgentHookTarget(std::string_view text);

/// The names of all agents in their order, as in a sentence: "Claude Code, Codex, Grok Build and
/// Pi".
std::string listedAgentNames();

}  // namespace nodo
