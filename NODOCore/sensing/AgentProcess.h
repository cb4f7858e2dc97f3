#pragma once

#include <NODOCore/base/TextEnum.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace nodo {

class JSONReader;
class JSONValue;

/// The coding agents that nodo knows.
enum class AgentKind { claudeCode, codex, grokBuild, pi };

template <>
struct EnumTexts<AgentKind> {
  static constexpr std::array cases{
      EnumText{AgentKind::claudeCode, "claudeCode"}, EnumText{AgentKind::codex, "codex"},
      EnumText{AgentKind::grokBuild, "grokBuild"}, EnumText{AgentKind::pi, "pi"}};
};

/// The agent's name as people read it, e.g. "Claude Code".
std::string_view displayName(AgentKind kind);

/// A running process that was recognised as an agent.
struct AgentProcess {
  std::int32_t pid = 0;
  std::optional<std::int32_t> ppid;
  std::string executable;
  std::string command;
  AgentKind kind = AgentKind::claudeCode;

  bool operator==(const AgentProcess&) const = default;
};

JSONValue encode(const AgentProcess& agent);
void decode(const JSONReader& from, AgentProcess& agent);

}  // namespace nodo
