#include <NODOCore/base/Text.h>
#include <NODOCore/hooks/AgentHookTarget.h>
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

// A step of one agent, where its hooks are in place.
std::string step(const Reports& reports, AgentHookTarget target, std::string_view text) {
  for (const AgentHookInstallReport& report : reports) {
    if (report.succeeded() && report.target == rawValue(target)) {
      return fmt::format("  {}: {}\n", displayName(target), text);
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
  steps += step(reports, AgentHookTarget::claude,
                "in interactive use it runs hooks only in a folder that you trust; say yes when it "
                "asks.");
  steps += step(reports, AgentHookTarget::codex,
                "it asks to review new hooks in its own screen, and runs them only after that.");
  steps += step(reports, AgentHookTarget::grok,
                "it also runs Claude Code's hooks, so its work may be shown under that name too.");
  const bool isAnyInstalled = std::any_of(reports.begin(), reports.end(),
                                          [](const auto& report) { return report.succeeded(); });
  if (!isAnyInstalled) {
    return "";
  }
  return (steps.empty() ? "" : "What you have to do or to know:\n" + steps) +
         "An agent that is running may have to be started again.\n";
}

std::string stepsAfterUninstalling(const Reports& reports) {
  for (const AgentHookInstallReport& report : reports) {
    if (report.changed && report.target == rawValue(AgentHookTarget::codex)) {
      return "Codex's own switch for hooks, in its config.toml, is left as it is: other hooks may "
             "need it.\n";
    }
  }
  return "";
}

}  // namespace nodo::nodoctl
