#include <NODOCore/hooks/AgentHookTarget.h>
#include <NODOCore/state/NODOError.h>

#include <string>

namespace nodo {

std::string_view displayName(AgentHookTarget target) {
  switch (target) {
    case AgentHookTarget::claude:
      return "Claude Code";
    case AgentHookTarget::codex:
      return "Codex";
    case AgentHookTarget::grok:
      return "Grok Build";
    case AgentHookTarget::pi:
      return "Pi";
  }
  programmingFault("a hook target that is none of its cases");
}

AgentHookTarget parseAgentHookTarget(std::string_view text) {
  if (const auto target = fromRawValue<AgentHookTarget>(text)) {
    return *target;
  }
  throw NODOError::invalidCommand("hook target " + std::string(text));
}

}  // namespace nodo
