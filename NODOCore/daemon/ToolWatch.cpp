#include <NODOCore/daemon/ToolWatch.h>

#include <algorithm>
#include <set>
#include <string_view>
#include <utility>

namespace nodo {
namespace {

// Two looks, as there is one a minute while the lock is held, and some lateness.
constexpr Seconds lastMinutes{130};
// Over less than this an idle agent's short work may look like a tool's.
constexpr Seconds shortestSpan{30};

// Per agent its last request, a tool's begin. Agents that asked for something else since are not
// waiting for a tool.
std::map<AgentKind, ActivationRequester> begunTools(const NODOState& state, Date now) {
  std::map<AgentKind, ActivationRequester> last;
  for (const ActivationRequester& request : state.triggerHistory) {
    for (const Agent& agent : allAgents()) {
      if (request.name == agent.displayName && request.event != ToolWatch::event) {
        last.insert_or_assign(agent.kind, request);
      }
    }
  }
  std::erase_if(last, [now](const auto& entry) {
    const auto& [kind, request] = entry;
    return request.event != agentOf(kind).toolEvent || request.requestedAt > now ||
           now - request.requestedAt > ToolWatch::longestTool;
  });
  return last;
}

// `roots` and all processes that they started, or that those did.
std::vector<std::int32_t> trees(const std::vector<RunningProcess>& processes,
                                std::vector<std::int32_t> roots) {
  std::multimap<std::int32_t, std::int32_t> children;
  for (const RunningProcess& process : processes) {
    children.emplace(process.ppid.value_or(0), process.pid);
  }
  std::set<std::int32_t> seen(roots.begin(), roots.end());
  for (std::size_t next = 0; next < roots.size(); ++next) {
    const auto [begin, end] = children.equal_range(roots[next]);
    for (auto child = begin; child != end; ++child) {
      if (seen.insert(child->second).second) {
        roots.push_back(child->second);
      }
    }
  }
  return roots;
}

// The time of a process that has ended is its parent's from then on, so that the sum only grows.
Seconds sum(const std::map<std::int32_t, Seconds>& times) {
  Seconds all{0};
  for (const auto& [pid, time] : times) {
    all += time;
  }
  return all;
}

}  // namespace

std::optional<ActivationRequester> ToolWatch::look(const NODOState& state,
                                                   const AgentDetector& detector,
                                                   const ProcessListing& listing, Date now,
                                                   Seconds running) {
  const auto begun = state.manualUntil && *state.manualUntil - now <= lastMinutes
                         ? begunTools(state, now)
                         : std::map<AgentKind, ActivationRequester>();
  if (begun.empty()) {
    samples_.clear();
    return std::nullopt;
  }
  Sample present = sample(begun, detector, listing, running);
  std::erase_if(samples_, [&](const Sample& each) { return each.at < running - lastMinutes; });
  const auto earlier = std::find_if(samples_.rbegin(), samples_.rend(), [&](const Sample& each) {
    return each.at <= running - shortestSpan;
  });
  std::optional<ActivationRequester> worker;
  if (state.manualRemainingSeconds(now) == 0 && earlier != samples_.rend()) {
    const Seconds needed = leastUse * ((running - earlier->at) / Seconds(60));
    for (const auto& [kind, request] : begun) {
      const auto before = earlier->used.find(kind);
      if (before != earlier->used.end() && present.used[kind] - before->second >= needed) {
        worker.emplace(request.name, request.context, event, now);
        break;
      }
    }
  }
  samples_.push_back(std::move(present));
  return worker;
}

ToolWatch::Sample ToolWatch::sample(const std::map<AgentKind, ActivationRequester>& begun,
                                    const AgentDetector& detector, const ProcessListing& listing,
                                    Seconds running) const {
  const std::vector<RunningProcess> processes = listing.listProcesses();
  const std::vector<AgentProcess> agents = detector.detect(processes);
  Sample sample{.at = running, .used = {}};
  for (const auto& [kind, request] : begun) {
    std::vector<std::int32_t> roots;
    for (const AgentProcess& agent : agents) {
      if (agent.kind == kind) {
        roots.push_back(agent.pid);
      }
    }
    sample.used[kind] = sum(processorTimes_(trees(processes, std::move(roots))));
  }
  return sample;
}

}  // namespace nodo
