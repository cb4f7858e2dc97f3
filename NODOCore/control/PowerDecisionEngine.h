#pragma once

#include <NODOCore/control/PowerDecision.h>
#include <NODOCore/control/SafetyPolicy.h>
#include <NODOCore/sensing/AgentProcess.h>
#include <NODOCore/sensing/SystemSnapshot.h>
#include <NODOCore/state/NODOState.h>

#include <vector>

namespace nodo {

/// Decides, at the instant of a snapshot, whether the machine is to be kept awake. Pure.
///
/// Only the manual timer keeps it awake (agents' hooks keep extending that), and a safety block
/// always wins over the timer.
struct PowerDecisionEngine {
  SafetyPolicy policy;

  /// The verdict for `state` at `snapshot.now`. `agents` take no part in it: an agent that merely
  /// sits there is no reason to stay awake.
  PowerDecision evaluate(const NODOState& state, const std::vector<AgentProcess>& agents,
                         const SystemSnapshot& snapshot) const;

  bool operator==(const PowerDecisionEngine&) const = default;
};

}  // namespace nodo
