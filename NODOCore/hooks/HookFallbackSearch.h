#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/hooks/AgentHookLogInspector.h>
#include <NODOCore/hooks/HookLogText.h>

#include <string>

namespace nodo {

/// The status by a hook log, read from its end only as far as it takes. Lines and markers are told
/// by characters, with the same result for every size of the pieces. Throws what reading throws.
AgentHookFallbackStatus fallbackStatus(HookLogText& log, std::string logPath, Date now);

}  // namespace nodo
