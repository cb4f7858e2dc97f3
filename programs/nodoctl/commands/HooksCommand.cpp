#include <NODOCore/base/Files.h>
#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/diagnostics/Findings.h>
#include <NODOCore/hooks/AgentHookInstaller.h>
#include <NODOCore/hooks/Agents.h>
#include <NODOCore/hooks/HookConfiguration.h>
#include <NODOCore/hooks/HookFiles.h>
#include <programs/nodoctl/Tool.h>
#include <programs/nodoctl/commands/Commands.h>

#include <algorithm>
#include <iterator>
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

// The path is left out where `what` names it.
std::string line(std::string_view name, std::string_view what, std::string_view path) {
  const std::string shown = escapedForDisplay(path);
  return fmt::format("{:<12} {}{}\n", fmt::format("{}:", name), what,
                     contains(what, shown) ? "" : " (" + shown + ")");
}

std::string_view nameOf(const AgentHookInstallReport& report) {
  const auto target = fromRawValue<AgentHookTarget>(report.target);
  return target ? displayName(*target) : "Hook script";
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

// What is installed, a line for each piece, how to bring it up to date if it is not, and what was
// found beside that.
std::string reportText(const AgentHookSetupInspection& inspection,
                       const std::vector<Finding>& found) {
  std::string text =
      line("Hook script", displayName(inspection.hookScriptStatus), inspection.hookScriptPath);
  for (const AgentHookTargetInspection& target : inspection.targets) {
    text += target.error
                ? fmt::format("{:<12} unknown, see below\n",
                              fmt::format("{}:", displayName(target.target)))
                : line(displayName(target.target), displayName(target.status), target.path);
  }
  const bool isOfferDue =
      !isCurrent(inspection.hookScriptStatus) ||
      std::any_of(inspection.targets.begin(), inspection.targets.end(),
                  [](const auto& target) { return !target.error && !isCurrent(target.status); });
  if (isOfferDue) {
    text +=
        "'nodoctl hooks install' installs what is missing and brings up to date what is "
        "outdated.\n";
  }
  return text + findingsText(found);
}

// What the person has to do before the agents run the hooks that were put in.
std::string stepsAfterInstalling(const AgentHookChanges& changes) {
  if (changes.targets.empty()) {
    return "";
  }
  std::string steps;
  for (const AgentHookTarget target : changes.targets) {
    const Agent& agent = agentOf(target);
    if (!agent.stepAfterInstalling.empty()) {
      steps += fmt::format("  {}: {}\n", agent.displayName, agent.stepAfterInstalling);
    }
  }
  return (steps.empty() ? "" : "What is left to do:\n" + steps) +
         "Restart agents that are running.\n";
}

// Whether a file that has lost our hooks holds nothing else.
bool isEmptied(const std::string& file) {
  const JSONValue left = readHookConfiguration(readFile(file), file);
  return std::all_of(left.object()->begin(), left.object()->end(), [](const auto& member) {
    return member.first == "hooks" && member.second == JSONValue(JSONValue::Object());
  });
}

// What an agent keeps after its hooks were taken out, and why.
std::string leftToAgent(const Agent& agent, const std::string& file) {
  std::string text;
  if (fs::exists(fs::symlink_status(file))) {
    if (isEmptied(file)) {
      text += escapedForDisplay(file) + " stays, empty: it may have been there before.\n";
    } else if (!agent.noteOnOtherHooks.empty()) {
      text += fmt::format("{}\n", agent.noteOnOtherHooks);
    }
  }
  return agent.leftAfterUninstalling.empty()
             ? text
             : fmt::format("{}{}\n", text, agent.leftAfterUninstalling);
}

// What becomes of the script, and of the agents that run it.
std::string leftOfScript(const fs::path& script, bool wasRemoved) {
  const std::string folder = escapedForDisplay(script.parent_path().string());
  if (!wasRemoved) {
    return fs::exists(script) ? "The hook script stays for the other agents; 'nodoctl hooks "
                                "uninstall' takes it away with the last of them.\n"
                              : "";
  }
  return (fs::exists(script.parent_path())
              ? folder + " stays: it holds more than the script, such as nodo's own state.\n"
              : "") +
         "An agent that is running reports a missing hook until it is started again.\n";
}

// What stays behind on purpose, and what comes of it.
std::string leftAfterUninstalling(const Reports& reports, const AgentHookChanges& changes,
                                  const fs::path& script) {
  std::string text;
  bool wasScriptRemoved = false;
  for (const AgentHookInstallReport& report : reports) {
    const auto target = fromRawValue<AgentHookTarget>(report.target);
    if (target && changes.targets.contains(*target)) {
      text += leftToAgent(agentOf(*target), report.path);
    }
    wasScriptRemoved = wasScriptRemoved || (!target && report.changed);
  }
  return changes.targets.empty() && !wasScriptRemoved
             ? text
             : text + leftOfScript(script, wasScriptRemoved);
}

// ---- what is done

fs::path namedHome(const HooksChoice& hooks, const Environment& environment) {
  if (hooks.home) {
    if (hooks.home->empty()) {
      throw std::runtime_error("--home is empty; name the home folder");
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

fs::path homeOf(const HooksChoice& hooks, const Environment& environment) {
  fs::path home = namedHome(hooks, environment);
  if (!fs::is_directory(statusOf(home))) {
    throw std::runtime_error("there is no home folder " + home.string() +
                             "; make it first, or name the right one with --home DIR");
  }
  return home;
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

// `further` follows the text; `done` says what could not be done where something failed.
Answer answer(const Reports& reports, const AgentHookChanges& changes, bool asJSON,
              const std::string& further, const char* done) {
  Answer answer{.output = asJSON ? jsonDocument(reports) : reportText(reports) + further,
                .hints = changes.losses};
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
  AgentHookChanges changes;
  const Reports reports = installer.installReportingFailures(targetsOf(command.hooks), &changes);
  Answer made = answer(reports, changes, command.json, stepsAfterInstalling(changes), "installed");
  const std::string& nodoctl = *installer.nodoctlPath;
  if (!nodoctl.empty() && !isProgram(nodoctl)) {
    made.hints.push_back(nodoctl +
                         " is no program that can be run, so the hooks cannot run it; name "
                         "another with --nodoctl PATH");
  }
  return made;
}

Answer perform(const HooksUninstallCommand& command, const ToolContext& context) {
  // Which nodoctl the hooks run plays no part in it.
  const AgentHookInstaller installer(homeOf(command.hooks, context.environment), std::nullopt, "");
  AgentHookChanges changes;
  const Reports reports = installer.uninstallReportingFailures(targetsOf(command.hooks), &changes);
  return answer(reports, changes, command.json,
                leftAfterUninstalling(reports, changes, installer.hookScriptPath), "uninstalled");
}

Answer perform(const HooksInspectCommand& command, const ToolContext& context) {
  // The environment says nothing of the agents of another home.
  const HookSurroundings surroundings =
      command.hooks.home ? HookSurroundings() : hookSurroundings(context.environment);
  FindingFacts facts{.now = context.now()};
  const AgentHookSetupInspection inspection =
      installerFor(command.hooks, context)
          .inspectReportingFailures(targetsOf(command.hooks), surroundings, facts.hookObstacles);
  std::copy_if(inspection.targets.begin(), inspection.targets.end(),
               std::back_inserter(facts.unreadableHooks),
               [](const auto& target) { return target.error.has_value(); });
  const std::vector<Finding> found = findings(facts);
  Answer answer;
  if (command.json) {
    JSONValue document = encode(inspection);
    if (!found.empty()) {
      document.setMember("findings", encode(found));
    }
    answer.output = jsonText(document, JSONLayout::pretty) + "\n";
  } else {
    answer.output = reportText(inspection, found);
  }
  if (!facts.unreadableHooks.empty()) {
    answer.exitStatus = exitFailure;
    answer.hints.push_back(fmt::format("{} of {} could not be inspected",
                                       facts.unreadableHooks.size(), inspection.targets.size()));
  }
  return answer;
}

}  // namespace nodo::nodoctl
