#include <NODOCore/base/Errors.h>
#include <NODOCore/hooks/AgentHookTarget.h>
#include <NODOCore/sensing/AgentDetector.h>

#include <string>

namespace nodo {

std::string_view displayName(AgentHookTarget target) {
  switch (target) {
    case AgentHookTarget::claude:
      return displayName(AgentKind::claudeCode);
    case AgentHookTarget::codex:
      return displayName(AgentKind::codex);
    case AgentHookTarget::grok:
      return displayName(AgentKind::grokBuild);
    case AgentHookTarget::pi:
      return displayName(AgentKind::pi);
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
