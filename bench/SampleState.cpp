#include <array>
#include <string>

#include <bench/SampleState.h>

namespace nodo::bench {
namespace {

constexpr std::size_t requests = 500;
constexpr std::size_t projects = 30;
constexpr std::size_t recent = 6;
constexpr std::size_t minutes = 720;
constexpr std::size_t audits = 20;
constexpr std::size_t shortestContext = 60;
constexpr std::size_t longestContext = 120;

double asSeconds(std::size_t count) {
  return static_cast<double>(count);
}

ActivationRequester requesterNumber(std::size_t index, Date at) {
  constexpr std::array<const char*, 4> names{"Claude Code", "Codex", "Grok Build", "Pi"};
  constexpr std::size_t lengths = longestContext - shortestContext + 1;
  std::string context = "~/projects/service-" + std::to_string(index % projects) + " session ";
  while (context.size() < shortestContext + index * 7 % lengths) {
    context += "0123456789abcdef"[(index + context.size()) % 16];
  }
  return {names[index % names.size()], context, "UserPromptSubmit", at};
}

}  // namespace

NODOState fullState(Date now) {
  NODOState state = NODOState::fresh(now);
  state.manualUntil = now + Seconds(3600);
  state.ownsSleepDisable = true;
  state.lastActivationReason = "manual_timer";
  for (std::size_t index = 0; index < minutes; ++index) {
    state.triggerActivityBuckets.push_back(
        {.startedAt = now - Seconds(60 * asSeconds(minutes - 1 - index)),
         .count = static_cast<std::int64_t>(1 + index % 9)});
  }
  for (std::size_t index = 0; index < requests; ++index) {
    state.triggerHistory.push_back(
        requesterNumber(index, now - Seconds(80 * asSeconds(requests - 1 - index))));
  }
  state.recentRequesters.assign(state.triggerHistory.rbegin(),
                                state.triggerHistory.rbegin() + recent);
  state.lastRequester = state.triggerHistory.back();
  for (std::size_t index = 0; index < audits; ++index) {
    const bool disables = index % 2 == 1;
    const PowerOperationResult operation(
        disables, false, std::string("/usr/bin/pmset -a disablesleep ") + (disables ? "1" : "0"), 0,
        "", "");
    state.recordPowerOperation(operation, now - Seconds(600 * asSeconds(audits - 1 - index)),
                               disables ? "enable:manual_timer" : "release:manual_expired", audits);
  }
  return state;
}

}  // namespace nodo::bench
