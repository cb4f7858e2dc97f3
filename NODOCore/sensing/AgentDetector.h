#pragma once

#include <NODOCore/sensing/AgentProcess.h>
#include <NODOCore/sensing/ProcessListing.h>
#include <NODOCore/sensing/RunningProcess.h>

#include <optional>
#include <vector>

namespace nodo {

/// Finds the coding agents in a process table by name and command line. Pure, safe from any thread.
class AgentDetector {
 public:
  /// The agents in the table that `listing` supplies; its failure is passed on.
  std::vector<AgentProcess> detect(const ProcessListing& listing) const;

  /// The agents among `processes`, in their order. A launcher and the runtime that it starts are
  /// two.
  std::vector<AgentProcess> detect(const std::vector<RunningProcess>& processes) const;

  /// Which agent `process` is, or nothing. A shell that only runs a one-line command (`bash -c
  /// ...`) is none, whatever the command mentions: agents' hooks and scripts run that way.
  std::optional<AgentKind> classify(const RunningProcess& process) const;
};

}  // namespace nodo
