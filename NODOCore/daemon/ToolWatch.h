#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/hooks/Agents.h>
#include <NODOCore/sensing/AgentDetector.h>
#include <NODOCore/sensing/ProcessListing.h>
#include <NODOCore/state/NODOState.h>

#include <cstdint>
#include <deque>
#include <map>
#include <optional>

namespace nodo {

/// Sees whether a tool that an agent began is still at work when the timer ends, so that a build of
/// more than the timer's minutes is not put to sleep in its middle: agents say nothing between a
/// tool's begin and its end.
///
/// A tool is at work when the agent's last request was its begin and the agent's processes, with
/// all below them, use the processor: those of an agent that waits for an answer do not, and one
/// that was killed has none. Looks at processes in the last minutes of such a timer alone. Not
/// thread-safe.
class ToolWatch {
 public:
  /// How long a tool is taken to work: who began it has forgotten it after that.
  static constexpr Seconds longestTool = std::chrono::hours(3);
  /// The timer that a tool at work gets.
  static constexpr std::int64_t leaseMinutes = 5;
  /// What a tool at work uses of the processor in a minute, at least. An idle agent that redraws
  /// its screen stays below it.
  static constexpr Seconds leastUse{1};
  /// The event under which such a request is recorded.
  static constexpr char event[] = "ToolRunning";

  /// To be called in each pass under a held lock, whose timer is that of `state`; `running` is the
  /// machine's clock. When the timer is over and a tool at work, the request that is to be made in
  /// its agent's name. Throws what the listing does.
  std::optional<ActivationRequester> look(const NODOState& state, const AgentDetector& detector,
                                          const ProcessListing& listing, Date now, Seconds running);

 private:
  struct Sample {
    Seconds at;  // by the machine's clock
    // So far, by each agent's process with all below it.
    std::map<AgentKind, std::map<std::int32_t, Seconds>> used;
  };

  static Sample sample(const std::map<AgentKind, ActivationRequester>& begun,
                       const AgentDetector& detector, const ProcessListing& listing,
                       Seconds running);

  std::deque<Sample> samples_;  // of the last minutes, the oldest first
};

}  // namespace nodo
