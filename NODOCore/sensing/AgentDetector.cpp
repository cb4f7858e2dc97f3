#include <NODOCore/base/Text.h>
#include <NODOCore/sensing/AgentDetector.h>

#include <algorithm>
#include <initializer_list>
#include <string>
#include <string_view>

namespace nodo {
namespace {

// What the rules look at, in lower case.
struct Row {
  std::string executable;
  std::string command;
  std::string_view name;  // the last component of `executable`
};

bool isAnyOf(std::string_view text, std::initializer_list<std::string_view> names) {
  return std::find(names.begin(), names.end(), text) != names.end();
}

bool containsAnyOf(std::string_view text, std::initializer_list<std::string_view> needles) {
  return std::any_of(needles.begin(), needles.end(),
                     [text](std::string_view needle) { return contains(text, needle); });
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
  return isAnyOf(row.name, {"claude", "claude-code"}) || contains(row.command, "claude-code");
}

bool isCodex(const Row& row) {
  constexpr std::string_view insideBundle = ".app/contents/macos";
  if (contains(row.executable, insideBundle) || contains(row.command, insideBundle)) {
    return false;  // the desktop application is no agent
  }
  return row.name == "codex" || containsAnyOf(row.command, {"/.codex/bin/codex", "openai codex"});
}

bool isGrokBuild(const Row& row) {
  if (containsAnyOf(row.command, {"/.grok/bin/grok", "/.grok/downloads/grok-"})) {
    return true;
  }
  return row.name == "grok" && (containsAnyOf(row.command, {" agent", " session", " leader"}) ||
                                hasSuffix(row.command, "/grok") || hasSuffix(row.command, " grok"));
}

bool isPi(const Row& row) {
  return row.name == "pi" || row.command == "pi" || hasPrefix(row.command, "pi ") ||
         hasSuffix(row.command, "/bin/pi") ||
         containsAnyOf(row.command, {"/bin/pi ", "@earendil-works/pi-coding-agent"});
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
  Row row{.executable = lowercased(process.executable),
          .command = lowercased(process.command),
          .name = {}};
  row.name = lastPathComponent(row.executable);
  if (isOneLineShell(row, process.command) || isAnyOf(row.name, {"nodoctl", "nodod"})) {
    return std::nullopt;
  }
  if (isClaudeCode(row)) {
    return AgentKind::claudeCode;
  }
  if (isCodex(row)) {
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
