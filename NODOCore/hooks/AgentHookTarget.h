#pragma once

#include <NODOCore/base/TextEnum.h>

#include <array>
#include <string_view>

namespace nodo {

/// The agents that hooks are installed for.
enum class AgentHookTarget { claude, codex, grok, pi };

template <>
struct EnumTexts<AgentHookTarget> {
  static constexpr std::array cases{
      EnumText{AgentHookTarget::claude, "claude"}, EnumText{AgentHookTarget::codex, "codex"},
      EnumText{AgentHookTarget::grok, "grok"}, EnumText{AgentHookTarget::pi, "pi"}};
};

/// The agent's name as people read it, and as the hook script names the requester.
std::string_view displayName(AgentHookTarget target);

/// The target with exactly this text. Throws NODOError::invalidCommand("hook target " + text).
AgentHookTarget parseAgentHookTarget(std::string_view text);

}  // namespace nodo
