#include <NODOCore/base/Text.h>
#include <NODOCore/diagnostics/AgentRequests.h>

#include <algorithm>

namespace nodo {
namespace {

constexpr Seconds suspicious = std::chrono::minutes(30);

// The state keeps every request for so long.
constexpr Seconds historySpan = std::chrono::hours(12);

// A process that serves others lives on when nobody works.
bool worksForAPerson(const AgentProcess& process) {
  const std::string_view service = agentOf(process.kind).serviceWord;
  return service.empty() || !contains(process.command, service);
}

}  // namespace

std::map<AgentKind, Date> lastRequests(const NODOState& state) {
  std::map<AgentKind, Date> last;
  for (const auto* requests : {&state.triggerHistory, &state.recentRequesters}) {
    for (const ActivationRequester& request : *requests) {
      if (const Agent* const agent = agentAskingAs(request.name)) {
        Date& at = last.try_emplace(agent->kind, request.requestedAt).first->second;
        at = std::max(at, request.requestedAt);
      }
    }
  }
  return last;
}

std::vector<SilentAgent> silentAgents(
    const StatusReport& report, const std::set<AgentHookTarget>& hooked,
    const std::function<std::optional<Seconds>(std::int32_t pid)>& ageOf) {
  const std::map<AgentKind, Date> last = lastRequests(report.state);
  const Date now = report.generatedAt;
  std::map<AgentKind, SilentAgent> oldest;
  for (const AgentProcess& process : report.agents) {
    if (!hooked.contains(agentOf(process.kind).target) || !worksForAPerson(process)) {
      continue;
    }
    const auto age = ageOf(process.pid);
    SilentAgent& found = oldest[process.kind];
    if (age && *age > found.span) {
      found = {process.kind, process.pid, *age};
    }
  }
  std::vector<SilentAgent> silent;
  for (auto& [kind, agent] : oldest) {
    const auto asked = last.find(kind);
    const bool hasAsked = asked != last.end() && asked->second >= now - agent.span;
    agent.span = std::min({agent.span, historySpan, Seconds(now - report.state.createdAt)});
    if (!hasAsked && agent.span >= suspicious) {
      silent.push_back(agent);
    }
  }
  return silent;
}

}  // namespace nodo
