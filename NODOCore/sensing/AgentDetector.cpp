#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/base/RE2Text.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/sensing/AgentDetector.h>

#include <algorithm>
#include <array>
#include <initializer_list>
#include <string>
#include <string_view>

namespace nodo {

std::string_view displayName(AgentKind kind) {
  switch (kind) {
    case AgentKind::claudeCode:
      return "Claude Code";
    case AgentKind::codex:
      return "Codex";
    case AgentKind::grokBuild:
      return "Grok Build";
    case AgentKind::pi:
      return "Pi";
  }
  programmingFault("a kind of agent that is none of its cases");
}

NODO_JSON_RECORD(AgentProcess, fields, agent) {
  fields.required("pid", agent.pid);
  fields.optional("ppid", agent.ppid);
  fields.required("executable", agent.executable);
  fields.required("command", agent.command);
  fields.required("kind", agent.kind);
}

namespace {

// What stands anywhere in the command lines of agents.
struct AgentText {
  AgentKind kind;
  std::string_view text;
};

constexpr std::array<AgentText, 7> agentTexts{{
    {AgentKind::claudeCode, "claude-code"},
    {AgentKind::codex, "/.codex/bin/codex"},
    {AgentKind::codex, "openai codex"},
    {AgentKind::grokBuild, "/.grok/bin/grok"},
    {AgentKind::grokBuild, "/.grok/downloads/grok-"},
    {AgentKind::pi, "/bin/pi "},
    {AgentKind::pi, "@earendil-works/pi-coding-agent"},
}};

std::string patternOfAgentTexts() {
  std::string pattern;
  for (const AgentText& agent : agentTexts) {
    pattern += (pattern.empty() ? "" : "|") + RE2::QuoteMeta(re2Text(agent.text));
  }
  return pattern;
}

// Whether any of these texts occurs, character boundaries apart. Nearly no row of a process table
// holds one, and searching each row for one text after the other would be most of the detector's
// work.
bool holdsAgentText(const std::string& command) {
  // Over bytes, so that invalid UTF-8 elsewhere in the line does not matter.
  static const RE2 anyAgentText(patternOfAgentTexts(), RE2::Latin1);
  return RE2::PartialMatch(command, anyAgentText);
}

// What the rules look at, in lower case.
struct Row {
  std::string name;  // the last component of the executable
  std::string command;
  bool holdsAgentText = false;  // character boundaries apart
};

bool isAnyOf(std::string_view text, std::initializer_list<std::string_view> names) {
  return std::find(names.begin(), names.end(), text) != names.end();
}

bool containsAnyOf(std::string_view text, std::initializer_list<std::string_view> needles) {
  return std::any_of(needles.begin(), needles.end(),
                     [text](std::string_view needle) { return contains(text, needle); });
}

bool holdsTextOf(AgentKind kind, const Row& row) {
  return row.holdsAgentText &&
         std::any_of(agentTexts.begin(), agentTexts.end(), [&](const AgentText& agent) {
           return agent.kind == kind && contains(row.command, agent.text);
         });
}

// Trailing slashes and "." components name the same file.
std::string_view lastPathComponent(std::string_view path) {
  while (path.size() > 1 && (path.ends_with('/') || path.ends_with("/."))) {
    path.remove_suffix(1);
  }
  const auto slash = path.rfind('/');
  return slash == std::string_view::npos || path.size() == 1 ? path : path.substr(slash + 1);
}

bool isOneLineShell(const Row& row, std::string_view command) {
  return isAnyOf(row.name, {"sh", "bash", "zsh", "fish"}) &&
         (contains(command, " -c ") || hasSuffix(command, " -c"));
}

bool isClaudeCode(const Row& row) {
  return isAnyOf(row.name, {"claude", "claude-code"}) || holdsTextOf(AgentKind::claudeCode, row);
}

bool isInsideBundle(const Row& row, std::string_view executable) {
  constexpr std::string_view insideBundle = ".app/contents/macos";
  return contains(row.command, insideBundle) || contains(lowercased(executable), insideBundle);
}

bool isCodex(const Row& row, std::string_view executable) {
  return (row.name == "codex" || holdsTextOf(AgentKind::codex, row)) &&
         !isInsideBundle(row, executable);  // the desktop application is no agent
}

bool isGrokBuild(const Row& row) {
  if (holdsTextOf(AgentKind::grokBuild, row)) {
    return true;
  }
  return row.name == "grok" && (containsAnyOf(row.command, {" agent", " session", " leader"}) ||
                                hasSuffix(row.command, "/grok") || hasSuffix(row.command, " grok"));
}

bool isPi(const Row& row) {
  return row.name == "pi" || row.command == "pi" || hasPrefix(row.command, "pi ") ||
         hasSuffix(row.command, "/bin/pi") || holdsTextOf(AgentKind::pi, row);
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
  Row row{.name = lowercased(lastPathComponent(process.executable)),
          .command = lowercased(process.command)};
  if (isOneLineShell(row, process.command) || isAnyOf(row.name, {"nodoctl", "nodod"})) {
    return std::nullopt;
  }
  row.holdsAgentText = holdsAgentText(row.command);
  if (isClaudeCode(row)) {
    return AgentKind::claudeCode;
  }
  if (isCodex(row, process.executable)) {
    return AgentKind::codex;
  }
  if (isGrokBuild(row)) {
    return AgentKind::grokBuild;
  }
  if (isPi(row)) {
    return AgentKind::pi;
  }
  return std::nullopt;
}

}  // namespace nodo
