#pragma once

#include <NODOCore/hooks/Agents.h>
#include <NODOCore/sensing/ProcessListing.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace nodo {

class JSONReader;
class JSONWriter;

/// A running process that was recognised as an agent.
struct AgentProcess {
  std::int32_t pid = 0;
  std::optional<std::int32_t> ppid;
  std::string executable;
  std::string command;
  AgentKind kind = AgentKind::claudeCode;

  bool operator==(const AgentProcess&) const = default;
};

void encode(JSONWriter& to, const AgentProcess& agent);
void decode(const JSONReader& from, AgentProcess& agent);

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

/// `agents`, which were found among `processes`, for people: without those that only started
/// another. An agent that is known by its command line alone, as `timeout 60 ~/.grok/bin/grok` is,
/// goes when one of its kind runs below it under another name. Pure.
std::vector<AgentProcess> withoutLaunchers(std::vector<AgentProcess> agents,
                                           const std::vector<RunningProcess>& processes);

}  // namespace nodo
