#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/control/PowerDecision.h>
#include <NODOCore/sensing/AgentProcess.h>
#include <NODOCore/sensing/SystemSnapshot.h>
#include <NODOCore/state/NODOState.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace nodo {

/// The answer of every controller command: the state and the machine at one instant, and what
/// follows.
struct StatusReport {
  Date generatedAt;
  NODOState state;  ///< with the lid and route trackers already updated for this instant
  SystemSnapshot snapshot;
  std::vector<AgentProcess> agents;
  PowerDecision decision;
  std::optional<std::int64_t> manualRemainingSeconds;
  std::optional<std::int64_t> noRouteGraceRemainingSeconds;

  bool operator==(const StatusReport&) const = default;
};

JSONValue encode(const StatusReport& report);
void decode(const JSONReader& from, StatusReport& report);

}  // namespace nodo
