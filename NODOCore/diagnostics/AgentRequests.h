#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/control/Reports.h>
#include <NODOCore/hooks/Agents.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <vector>

/// Which agents ask to keep the machine awake, and which do not although they run. Pure.
namespace nodo {

/// When each agent asked last, by the name that the hook script asks under. Agents of which the
/// state holds no request are left out.
std::map<AgentKind, Date> lastRequests(const NODOState& state);

/// An agent that runs and asks for nothing, which is no fault of one that has nothing to do.
struct SilentAgent {
  AgentKind kind = AgentKind::claudeCode;
  std::int32_t pid = 0;  ///< of its oldest process
  Seconds span{};        ///< how long it has certainly run without a request, 30 minutes or more

  bool operator==(const SilentAgent&) const = default;
};

/// The agents among `hooked`, the targets whose hooks should run, that are silent by the daemon's
/// `report`. `ageOf` answers how long a process has run, and nothing for one that is another user's
/// or gone: that user's hooks are not known.
std::vector<SilentAgent> silentAgents(
    const StatusReport& report, const std::set<AgentHookTarget>& hooked,
    const std::function<std::optional<Seconds>(std::int32_t pid)>& ageOf);

}  // namespace nodo
