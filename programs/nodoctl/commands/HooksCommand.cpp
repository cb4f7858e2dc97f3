#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/hooks/AgentHookInstaller.h>
#include <programs/nodoctl/HooksText.h>
#include <programs/nodoctl/ToolPath.h>
#include <programs/nodoctl/commands/HooksCommand.h>

#include <algorithm>
#include <stdexcept>

#include <fmt/format.h>

namespace nodo::nodoctl {
namespace {

namespace fs = std::filesystem;

using Reports = std::vector<AgentHookInstallReport>;
using Targets = std::vector<AgentHookTarget>;

fs::path homeFolder(const Invocation& invocation, const Environment& environment) {
  if (invocation.home) {
    if (invocation.home->empty()) {
      throw std::runtime_error("--home names no folder");
    }
    return absolutePath(*invocation.home);
  }
  const auto home = nonEmptyValue(environment, "HOME");
  if (!home) {
    throw std::runtime_error(
        "HOME is not set, so it is not known where the agents' configuration lies; "
        "use --home DIR");
  }
  return absolutePath(*home);
}

std::string nodoctlPath(const Invocation& invocation, const ToolContext& context) {
  if (invocation.nodoctl) {
    // Without a path the hook script looks for nodoctl in the usual places only.
    return invocation.nodoctl->empty() ? "" : absolutePath(*invocation.nodoctl).string();
  }
  if (const auto path = toolPath(context.startedAs, context.environment)) {
    return path->string();
  }
  if (invocation.command == Command::hooksUninstall) {
    return "";  // which plays no part in it
  }
  throw std::runtime_error("it is not known where this nodoctl lies, as it was started as \"" +
                           context.startedAs + "\"; use --nodoctl PATH");
}

Targets targetsOf(const Invocation& invocation) {
  if (invocation.hookTargets.empty()) {
    return allCases<AgentHookTarget>();
  }
  Targets targets;
  for (const AgentHookTarget target : invocation.hookTargets) {
    if (std::find(targets.begin(), targets.end(), target) == targets.end()) {
      targets.push_back(target);
    }
  }
  return targets;
}

Reports changeHooks(const Invocation& invocation, const AgentHookInstaller& installer) {
  const Targets targets = targetsOf(invocation);
  return invocation.command == Command::hooksInstall
             ? installer.installReportingFailures(targets)
             : installer.uninstallReportingFailures(targets);
}

template <class Document>
std::string jsonDocument(const Document& document) {
  return encodeJSON(document, JSONLayout::pretty) + "\n";
}

std::string changeText(const Reports& reports, bool installs) {
  return reportText(reports) +
         (installs ? stepsAfterInstalling(reports) : stepsAfterUninstalling(reports));
}

void addHints(Answer& answer, const Reports& reports, const AgentHookInstaller& installer,
              bool installs) {
  const auto failures = std::count_if(reports.begin(), reports.end(),
                                      [](const auto& report) { return !report.succeeded(); });
  if (failures > 0) {
    answer.hints.push_back(fmt::format("{} of {} could not be {}", failures, reports.size(),
                                       installs ? "installed" : "uninstalled"));
  }
  const std::string& nodoctl = *installer.nodoctlPath;
  if (installs && !nodoctl.empty() && !isProgram(nodoctl)) {
    answer.hints.push_back(nodoctl + " is no program that can be run, so the hooks cannot run it");
  }
  answer.failed = failures > 0;
}

Answer change(const Invocation& invocation, const AgentHookInstaller& installer) {
  const Reports reports = changeHooks(invocation, installer);
  const bool installs = invocation.command == Command::hooksInstall;
  Answer answer{.output = invocation.json ? jsonDocument(reports) : changeText(reports, installs)};
  addHints(answer, reports, installer, installs);
  return answer;
}

}  // namespace

Answer performHooks(const Invocation& invocation, const ToolContext& context) {
  const AgentHookInstaller installer(homeFolder(invocation, context.environment), std::nullopt,
                                     nodoctlPath(invocation, context));
  if (invocation.command != Command::hooksInspect) {
    return change(invocation, installer);
  }
  const AgentHookSetupInspection inspection = installer.inspect(targetsOf(invocation));
  return {.output = invocation.json ? jsonDocument(inspection) : reportText(inspection)};
}

}  // namespace nodo::nodoctl
