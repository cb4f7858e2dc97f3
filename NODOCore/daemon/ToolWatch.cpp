#include <NODOCore/daemon/ToolWatch.h>

#include <algorithm>
#include <set>
#include <utility>
#include <vector>

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
    const Agent* const agent = agentAskingAs(request.name);
    if (agent != nullptr && request.event != ToolWatch::event) {
      last.insert_or_assign(agent->kind, request);
    }
  }
  std::erase_if(last, [now](const auto& entry) {
    const auto& [kind, request] = entry;
    return request.event != agentOf(kind).toolEvent || request.requestedAt > now ||
           now - request.requestedAt > ToolWatch::longestTool;
  });
  return last;
}

using Children = std::multimap<std::int32_t, std::int32_t>;
using Trees = std::map<std::int32_t, std::vector<std::int32_t>>;

// The agents of `kind` that no other of them has started, each with all processes below it. Looks
// at each process once, however many there are: anybody may start thousands that look like agents.
Trees treesOf(AgentKind kind, const std::vector<AgentProcess>& agents, const Children& children) {
  Trees trees;
  std::set<std::int32_t> seen;
  for (const AgentProcess& agent : agents) {
    if (agent.kind != kind || !seen.insert(agent.pid).second) {
      continue;
    }
    std::vector<std::int32_t> tree{agent.pid};
    for (std::size_t next = 0; next < tree.size(); ++next) {
      const auto [begin, end] = children.equal_range(tree[next]);
      for (auto child = begin; child != end; ++child) {
        if (seen.insert(child->second).second) {
          tree.push_back(child->second);
        } else if (const auto below = trees.extract(child->second)) {
          tree.insert(tree.end(), below.mapped().begin(), below.mapped().end());
        }
      }
    }
    trees.emplace(agent.pid, std::move(tree));
  }
  return trees;
}

// What those that were there `before` have used since: another one did not begin the tool.
Seconds useBetween(const std::map<std::int32_t, Seconds>& before,
                   const std::map<std::int32_t, Seconds>& now) {
  Seconds use{0};
  for (const auto& [root, total] : now) {
    if (const auto known = before.find(root); known != before.end()) {
      use += std::max(total - known->second, Seconds(0));
    }
  }
  return use;
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
      if (useBetween(earlier->used[kind], present.used[kind]) >= needed) {
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
                                    Seconds running) {
  const std::vector<RunningProcess> processes = listing.listProcesses();
  const std::vector<AgentProcess> agents = detector.detect(processes);
  Children children;
  for (const RunningProcess& process : processes) {
    children.emplace(process.ppid.value_or(0), process.pid);
  }
  Sample sample{.at = running, .used = {}};
  for (const auto& [kind, request] : begun) {
    for (const auto& [root, tree] : treesOf(kind, agents, children)) {
      // The time of a process that has ended is its parent's from then on.
      Seconds& used = sample.used[kind][root];
      for (const auto& [pid, time] : listing.processorTimes(tree)) {
        used += time;
      }
    }
  }
  return sample;
}

}  // namespace nodo
