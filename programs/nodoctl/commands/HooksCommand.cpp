#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/hooks/AgentHookInstaller.h>
#include <NODOCore/hooks/HookTargetSetup.h>
#include <programs/nodoctl/HooksText.h>
#include <programs/nodoctl/ToolPath.h>
#include <programs/nodoctl/commands/HooksCommand.h>

#include <algorithm>
#include <exception>
#include <stdexcept>
#include <utility>

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

AgentHookInstallReport failureReport(std::string target, const fs::path& path,
                                     const std::exception& error) {
  return {.target = std::move(target),
          .path = path.string(),
          .changed = false,
          .message = "failed",
          .error = error.what()};
}

// One by one, so that a file that cannot be changed keeps only its own agent's hooks installed. The
// script stays as long as an agent may still run it.
Reports uninstallReportingFailures(const AgentHookInstaller& installer, const Targets& targets) {
  Reports reports;
  bool failed = false;
  for (const AgentHookTarget target : targets) {
    try {
      reports.push_back(installer.uninstall({target}).front());
    } catch (const std::exception& error) {
      failed = true;
      reports.push_back(failureReport(std::string(rawValue(target)),
                                      hookConfigurationFile(target, installer.homeDirectory),
                                      error));
    }
  }
  if (!failed && targets.size() == allCases<AgentHookTarget>().size()) {
    try {
      reports.push_back(installer.uninstall(targets).back());
    } catch (const std::exception& error) {
      reports.push_back(failureReport("hook-script", installer.hookScriptPath, error));
    }
  }
  return reports;
}

Reports changeHooks(const Invocation& invocation, const AgentHookInstaller& installer) {
  const Targets targets = targetsOf(invocation);
  return invocation.command == Command::hooksInstall
             ? installer.installReportingFailures(targets)
             : uninstallReportingFailures(installer, targets);
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
