#include <NODOCore/base/Text.h>
#include <NODOCore/hooks/Agents.h>
#include <programs/nodoctl/HooksText.h>

#include <algorithm>
#include <string_view>

#include <fmt/format.h>

namespace nodo::nodoctl {
namespace {

using Reports = std::vector<AgentHookInstallReport>;

std::string line(std::string_view name, std::string_view what, std::string_view path) {
  return fmt::format("{:<12} {} ({})\n", fmt::format("{}:", name), what, escapedForDisplay(path));
}

std::string_view nameOf(const AgentHookInstallReport& report) {
  const auto target = fromRawValue<AgentHookTarget>(report.target);
  return target ? displayName(*target) : "Hook script";
}

// What is left to do for an agent, where its hooks are in place.
std::string step(const Reports& reports, const Agent& agent) {
  for (const AgentHookInstallReport& report : reports) {
    if (report.succeeded() && report.target == rawValue(agent.target) &&
        !agent.stepAfterInstalling.empty()) {
      return fmt::format("  {}: {}\n", agent.displayName, agent.stepAfterInstalling);
    }
  }
  return "";
}

}  // namespace

std::string reportText(const Reports& reports) {
  std::string text;
  for (const AgentHookInstallReport& report : reports) {
    const std::string what = report.message + (report.error ? ": " + *report.error : "");
    text += line(nameOf(report), escapedForDisplay(what), report.path);
  }
  return text;
}

std::string reportText(const AgentHookSetupInspection& inspection) {
  std::string text =
      line("Hook script", displayName(inspection.hookScriptStatus), inspection.hookScriptPath);
  for (const AgentHookTargetInspection& target : inspection.targets) {
    text += line(displayName(target.target), displayName(target.status), target.path);
  }
  if (!inspection.isCurrent()) {
    text +=
        "'nodoctl hooks install' installs what is missing and brings up to date what is "
        "outdated.\n";
  }
  return text;
}

std::string stepsAfterInstalling(const Reports& reports) {
  std::string steps;
  for (const Agent& agent : allAgents()) {
    steps += step(reports, agent);
  }
  const bool isAnyInstalled = std::any_of(reports.begin(), reports.end(),
                                          [](const auto& report) { return report.succeeded(); });
  if (!isAnyInstalled) {
    return "";
  }
  return (steps.empty() ? "" : "What you have to do or to know:\n" + steps) +
         "An agent that is running may have to be started again.\n";
}

std::string stepsAfterUninstalling(const Reports& reports) {
  std::string text;
  for (const AgentHookInstallReport& report : reports) {
    const auto target = fromRawValue<AgentHookTarget>(report.target);
    if (target && report.changed && !agentOf(*target).leftAfterUninstalling.empty()) {
      text += fmt::format("{}\n", agentOf(*target).leftAfterUninstalling);
    }
  }
  return text;
}

}  // namespace nodo::nodoctl
