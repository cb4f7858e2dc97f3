#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/hooks/AgentHookInstaller.h>
#include <NODOCore/hooks/Agents.h>
#include <programs/nodoctl/Tool.h>
#include <programs/nodoctl/commands/Commands.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fmt/format.h>

namespace nodo::nodoctl {
namespace {

namespace fs = std::filesystem;

using Reports = std::vector<AgentHookInstallReport>;
using Targets = std::vector<AgentHookTarget>;

// ---- what people read: lines with a line feed at the end of each, texts from outside escaped

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

// What was done, a line for each report.
std::string reportText(const Reports& reports) {
  std::string text;
  for (const AgentHookInstallReport& report : reports) {
    const std::string what = report.message + (report.error ? ": " + *report.error : "");
    text += line(nameOf(report), escapedForDisplay(what), report.path);
  }
  return text;
}

// What is installed, a line for each piece, and how to bring it up to date if it is not.
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

// What the person has to do before the agents run the hooks that the reports tell of.
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

// What stays behind on purpose.
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

// ---- what is done

fs::path homeOf(const HooksChoice& hooks, const Environment& environment) {
  if (hooks.home) {
    if (hooks.home->empty()) {
      throw std::runtime_error("--home names no folder");
    }
    return absolutePath(*hooks.home);
  }
  if (const auto home = homeFolder(environment)) {
    return *home;
  }
  throw std::runtime_error(
      "HOME is not set, so it is not known where the agents' configuration lies; "
      "use --home DIR");
}

std::string nodoctlOf(const HooksChoice& hooks, const ToolContext& context) {
  if (hooks.nodoctl) {
    // Without a path the hook script looks for nodoctl in the usual places only.
    return hooks.nodoctl->empty() ? "" : absolutePath(*hooks.nodoctl).string();
  }
  if (const auto path = toolPath(context)) {
    return path->string();
  }
  throw std::runtime_error("it is not known where this nodoctl lies, as it was started as \"" +
                           context.startedAs + "\"; use --nodoctl PATH");
}

AgentHookInstaller installerFor(const HooksChoice& hooks, const ToolContext& context) {
  return AgentHookInstaller(homeOf(hooks, context.environment), std::nullopt,
                            nodoctlOf(hooks, context));
}

Targets targetsOf(const HooksChoice& hooks) {
  if (hooks.targets.empty()) {
    return allCases<AgentHookTarget>();
  }
  Targets targets;
  for (const AgentHookTarget target : hooks.targets) {
    if (std::find(targets.begin(), targets.end(), target) == targets.end()) {
      targets.push_back(target);
    }
  }
  return targets;
}

// `steps` follow the text; `done` says what could not be done where something failed.
Answer answer(const Reports& reports, bool asJSON, const std::string& steps, const char* done) {
  Answer answer{.output = asJSON ? jsonDocument(reports) : reportText(reports) + steps};
  const auto failures = std::count_if(reports.begin(), reports.end(),
                                      [](const auto& report) { return !report.succeeded(); });
  if (failures > 0) {
    answer.exitStatus = exitFailure;
    answer.hints.push_back(fmt::format("{} of {} could not be {}", failures, reports.size(), done));
  }
  return answer;
}

}  // namespace

Answer perform(const HooksInstallCommand& command, const ToolContext& context) {
  const AgentHookInstaller installer = installerFor(command.hooks, context);
  const Reports reports = installer.installReportingFailures(targetsOf(command.hooks));
  Answer made = answer(reports, command.json, stepsAfterInstalling(reports), "installed");
  const std::string& nodoctl = *installer.nodoctlPath;
  if (!nodoctl.empty() && !isProgram(nodoctl)) {
    made.hints.push_back(nodoctl + " is no program that can be run, so the hooks cannot run it");
  }
  return made;
}

Answer perform(const HooksUninstallCommand& command, const ToolContext& context) {
  // Which nodoctl the hooks run plays no part in it.
  const AgentHookInstaller installer(homeOf(command.hooks, context.environment), std::nullopt, "");
  const Reports reports = installer.uninstallReportingFailures(targetsOf(command.hooks));
  return answer(reports, command.json, stepsAfterUninstalling(reports), "uninstalled");
}

Answer perform(const HooksInspectCommand& command, const ToolContext& context) {
  const AgentHookSetupInspection inspection =
      installerFor(command.hooks, context).inspect(targetsOf(command.hooks));
  return {.output = command.json ? jsonDocument(inspection) : reportText(inspection)};
}

}  // namespace nodo::nodoctl
