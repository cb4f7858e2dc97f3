#include <NODOCore/base/Errors.h>
#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/sensing/AgentDetector.h>

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <map>
#include <set>
#include <string>
#include <string_view>

namespace nodo {

NODO_JSON_RECORD(AgentProcess, fields, agent) {
  fields.required("pid", agent.pid);
  fields.optional("ppid", agent.ppid);
  fields.required("executable", agent.executable);
  fields.required("command", agent.command);
  fields.required("kind", agent.kind);
}

namespace {

// What the signs are looked for in: a process in lower case.
struct Row {
  std::string name;  // the last component of the executable
  std::string command;
};

bool isAnyOf(std::string_view text, std::initializer_list<std::string_view> names) {
  return std::find(names.begin(), names.end(), text) != names.end();
}

// Trailing slashes and "." components name the same file.
std::string_view lastPathComponent(std::string_view path) {
  while (path.size() > 1 && (path.ends_with('/') || path.ends_with("/."))) {
    path.remove_suffix(1);
  }
  const auto slash = path.rfind('/');
  return slash == std::string_view::npos || path.size() == 1 ? path : path.substr(slash + 1);
}

// `command` as it stands: "-C" is another option.
bool isOneLineShell(const Row& row, std::string_view command) {
  return isAnyOf(row.name, {"sh", "bash", "zsh", "fish"}) &&
         (contains(command, " -c ") || hasSuffix(command, " -c"));
}

bool shows(const Row& row, const AgentSign& sign) {
  switch (sign.place) {
    case AgentSign::Place::name:
      return row.name == sign.text;
    case AgentSign::Place::wholeCommand:
      return row.command == sign.text;
    case AgentSign::Place::commandBegin:
      return hasPrefix(row.command, sign.text);
    case AgentSign::Place::commandEnd:
      return hasSuffix(row.command, sign.text);
    case AgentSign::Place::inCommand:
      return contains(row.command, sign.text);
  }
  programmingFault("a sign of an agent that is in none of its places");
}

bool showsAnyOf(const Row& row, const std::vector<AgentSign>& signs) {
  return std::any_of(signs.begin(), signs.end(),
                     [&](const AgentSign& sign) { return shows(row, sign); });
}

bool isInsideBundle(const Row& row, std::string_view executable) {
  constexpr std::string_view insideBundle = ".app/contents/macos";
  return contains(row.command, insideBundle) || contains(lowercased(executable), insideBundle);
}

bool isAgent(const Agent& agent, const Row& row, std::string_view executable) {
  const auto makesIt = [&](const AgentSign& sign) {
    const bool suffices = sign.place != AgentSign::Place::name || agent.signsBesideName.empty();
    return shows(row, sign) && (suffices || showsAnyOf(row, agent.signsBesideName));
  };
  return std::any_of(agent.signs.begin(), agent.signs.end(), makesIt) &&
         !(agent.hasLookalikeApplication && isInsideBundle(row, executable));
}

std::string nameOf(const AgentProcess& agent) {
  return lowercased(lastPathComponent(agent.executable));
}

bool isKnownByName(const AgentProcess& agent) {
  const std::vector<AgentSign>& signs = agentOf(agent.kind).signs;
  return std::any_of(signs.begin(), signs.end(), [name = nameOf(agent)](const AgentSign& sign) {
    return sign.place == AgentSign::Place::name && sign.text == name;
  });
}

// A runtime that runs below another of its name is an agent that an agent has started.
bool isLauncherOf(const AgentProcess& above, const AgentProcess& agent) {
  return above.kind == agent.kind && !isKnownByName(above) && nameOf(above) != nameOf(agent);
}

}  // namespace

std::vector<AgentProcess> AgentDetector::detect(const ProcessListing& listing) const {
  return detect(listing.listProcesses());
}

std::vector<AgentProcess> AgentDetector::detect(
    const std::vector<RunningProcess>& processes) const {
  std::vector<AgentProcess> agents;
  for (const RunningProcess& process : processes) {
    if (const auto kind = classify(process)) {
      agents.push_back({.pid = process.pid,
                        .ppid = process.ppid,
                        .executable = process.executable,
                        .command = process.command,
                        .kind = *kind});
    }
  }
  return agents;
}

std::optional<AgentKind> AgentDetector::classify(const RunningProcess& process) const {
  const Row row{.name = lowercased(lastPathComponent(process.executable)),
                .command = lowercased(process.command)};
  if (isOneLineShell(row, process.command) || isAnyOf(row.name, {"nodoctl", "nodod"})) {
    return std::nullopt;
  }
  for (const Agent& agent : allAgents()) {
    if (isAgent(agent, row, process.executable)) {
      return agent.kind;
    }
  }
  return std::nullopt;
}

std::vector<AgentProcess> withoutLaunchers(std::vector<AgentProcess> agents,
                                           const std::vector<RunningProcess>& processes) {
  std::map<std::int32_t, std::optional<std::int32_t>> parents;
  for (const RunningProcess& process : processes) {
    parents.emplace(process.pid, process.ppid);
  }
  std::set<std::int32_t> launchers;
  for (const AgentProcess& agent : agents) {
    std::optional<std::int32_t> above = agent.ppid;
    // Bounded, as a table that was read while it changed may hold a circle.
    for (std::size_t steps = parents.size(); above && steps > 0; --steps) {
      for (const AgentProcess& other : agents) {
        if (other.pid == *above && isLauncherOf(other, agent)) {
          launchers.insert(other.pid);
        }
      }
      const auto next = parents.find(*above);
      above = next == parents.end() ? std::nullopt : next->second;
    }
  }
  std::erase_if(agents, [&](const AgentProcess& agent) { return launchers.contains(agent.pid); });
  return agents;
}

}  // namespace nodo
