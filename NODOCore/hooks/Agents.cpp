#include <NODOCore/base/Errors.h>
#include <NODOCore/hooks/Agents.h>

#include <algorithm>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace nodo {

const std::vector<Agent>& allAgents() {
  using Place = AgentSign::Place;
  static const std::vector<Agent> agents{
      {.kind = AgentKind::claudeCode,
       .target = AgentHookTarget::claude,
       .displayName = "Claude Code",
       .signs = {{Place::name, "claude"},
                 {Place::name, "claude-code"},
                 {Place::inCommand, "claude-code"}},
       .configurationFile = ".claude/settings.json",
       .folderVariable = "CLAUDE_CONFIG_DIR",
       .fileKind = HookFileKind::sharedConfiguration,
       .stepAfterInstalling = "it runs hooks only in folders that you trust: accept when it asks."},
      {.kind = AgentKind::codex,
       .target = AgentHookTarget::codex,
       .displayName = "Codex",
       .signs = {{Place::name, "codex"},
                 {Place::inCommand, "/.codex/bin/codex"},
                 {Place::inCommand, "openai codex"}},
       .hasLookalikeApplication = true,
       .serviceWord = " app-server",
       .configurationFile = ".codex/hooks.json",
       .folderVariable = "CODEX_HOME",
       .fileKind = HookFileKind::sharedConfiguration,
       .hasFeatureSwitch = true,
       .removesEmptiedFile = true,
       .installedMessage = "installed; Codex hooks feature enabled",
       .stepAfterInstalling =
           "it asks to review new hooks in its own screen, and runs them only after that.",
       .leftAfterUninstalling = "Codex's own switch for hooks, in its config.toml, is left as it "
                                "is: other hooks may need it.",
       .noteOnOtherHooks = "Codex may ask to review the other hooks again that it still has."},
      // "grok" alone is also what other programs are called.
      {.kind = AgentKind::grokBuild,
       .target = AgentHookTarget::grok,
       .displayName = "Grok Build",
       .signs = {{Place::inCommand, "/.grok/bin/grok"},
                 {Place::inCommand, "/.grok/downloads/grok-"},
                 {Place::name, "grok"}},
       .signsBesideName = {{Place::inCommand, " agent"},
                           {Place::inCommand, " session"},
                           {Place::inCommand, " leader"},
                           {Place::commandEnd, "/grok"},
                           {Place::commandEnd, " grok"}},
       .configurationFile = ".grok/hooks/nodo.json",
       .fileKind = HookFileKind::ownConfiguration,
       .stepAfterInstalling = "it also runs Claude Code's hooks, so its work may be shown under "
                              "that name too."},
      // Mostly seen as the JavaScript runtime that runs its package.
      {.kind = AgentKind::pi,
       .target = AgentHookTarget::pi,
       .displayName = "Pi",
       .signs = {{Place::name, "pi"},
                 {Place::wholeCommand, "pi"},
                 {Place::commandBegin, "pi "},
                 {Place::commandEnd, "/bin/pi"},
                 {Place::inCommand, "/bin/pi "},
                 {Place::inCommand, "@earendil-works/pi-coding-agent"}},
       .toolEvent = "tool_call",
       .configurationFile = ".pi/agent/extensions/nodo.ts",
       .fileKind = HookFileKind::ownExtension},
  };
  return agents;
}

namespace {

template <class Enum>
const Agent& agentWith(Enum Agent::*member, Enum value) {
  const auto found = std::find_if(allAgents().begin(), allAgents().end(),
                                  [&](const Agent& agent) { return agent.*member == value; });
  if (found == allAgents().end()) {
    programmingFault("an agent that has no row in the table of agents");
  }
  return *found;
}

}  // namespace

const Agent& agentOf(AgentKind kind) {
  return agentWith(&Agent::kind, kind);
}

const Agent& agentOf(AgentHookTarget target) {
  return agentWith(&Agent::target, target);
}

const Agent* agentAskingAs(std::string_view name) {
  const auto found = std::find_if(allAgents().begin(), allAgents().end(),
                                  [&](const Agent& agent) { return agent.displayName == name; });
  return found != allAgents().end() ? &*found : nullptr;
}

std::string_view displayName(AgentKind kind) {
  return agentOf(kind).displayName;
}

std::string_view displayName(AgentHookTarget target) {
  return agentOf(target).displayName;
}

AgentHookTarget parseAgentHookTarget(std::string_view text) {
  if (const auto target = fromRawValue<AgentHookTarget>(text)) {
    return *target;
  }
  throw NODOError::invalidCommand("hook target " + std::string(text));
}

std::string listedAgentNames() {
  std::vector<std::string_view> names;
  for (const AgentKind kind : allCases<AgentKind>()) {
    names.push_back(displayName(kind));
  }
  const std::string_view last = names.back();
  names.pop_back();
  return fmt::format("{} and {}", fmt::join(names, ", "), last);
}

}  // namespace nodo
