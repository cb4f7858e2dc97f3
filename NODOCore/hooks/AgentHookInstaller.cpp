#include <NODOCore/base/Errors.h>
#include <NODOCore/base/Files.h>
#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/hooks/AgentHookInstaller.h>
#include <NODOCore/hooks/CodexConfig.h>
#include <NODOCore/hooks/HookConfiguration.h>
#include <NODOCore/hooks/HookScript.h>

#include <algorithm>
#include <cerrno>
#include <set>
#include <system_error>

namespace nodo {

NODO_JSON_RECORD(AgentHookInstallReport, fields, report) {
  fields.required("target", report.target);
  fields.required("path", report.path);
  fields.required("changed", report.changed);
  fields.required("message", report.message);
  fields.optional("error", report.error);
}

namespace {

namespace fs = std::filesystem;

// One agent's hooks: the file that they go into, and the script that they run.
struct Hooks {
  const Agent& agent;
  fs::path file;
  fs::path script;
};

Hooks hooksOf(const AgentHookInstaller& installer, AgentHookTarget target) {
  const Agent& agent = agentOf(target);
  return {agent, installer.homeDirectory / agent.configurationFile, installer.hookScriptPath};
}

// ---- Installing: each function returns whether anything had to be.

bool mergeIntoConfiguration(const Hooks& hooks) {
  bool changed = false;
  updateFileThroughLinks(hooks.file, [&](const FileContent& before) -> FileContent {
    JSONValue configuration = readHookConfiguration(before, hooks.file);
    changed = addHooks(configuration, hooks.agent.target, hooks.script);
    return hookConfigurationText(configuration);
  });
  return changed;
}

bool writeOwnConfiguration(const Hooks& hooks) {
  const JSONValue wanted = ownHookConfiguration(hooks.agent.target, hooks.script);
  return updateFileThroughLinks(hooks.file, [&](const FileContent& before) -> FileContent {
    const JSONValue present = readHookConfiguration(before, hooks.file);
    return sameValue(present, wanted) ? before : hookConfigurationText(wanted);
  });
}

bool writeExtension(const Hooks& hooks) {
  return updateFileThroughLinks(
      hooks.file, [&](const FileContent&) -> FileContent { return piExtensionText(hooks.script); });
}

fs::path featureFile(const Hooks& hooks) {
  return hooks.file.parent_path() / "config.toml";
}

bool switchFeatureOn(const Hooks& hooks) {
  const fs::path file = featureFile(hooks);
  return updateFileThroughLinks(file, [&](const FileContent& before) -> FileContent {
    const std::string text = before.value_or("");
    std::string edited = codexConfigWithHooksOn(text, file);
    return edited == text ? before : FileContent(std::move(edited));
  });
}

bool installFile(const Hooks& hooks) {
  switch (hooks.agent.fileKind) {
    case HookFileKind::sharedConfiguration:
      return mergeIntoConfiguration(hooks);
    case HookFileKind::ownConfiguration:
      return writeOwnConfiguration(hooks);
    case HookFileKind::ownExtension:
      return writeExtension(hooks);
  }
  programmingFault("a hook file of no kind");
}

bool install(const Hooks& hooks) {
  if (hooks.agent.hasFeatureSwitch) {
    // Only to fail before anything is changed.
    codexConfigWithHooksOn(readFile(featureFile(hooks)).value_or(""), featureFile(hooks));
  }
  makeFolder(hooks.file.parent_path());
  const bool changed = installFile(hooks);
  return (hooks.agent.hasFeatureSwitch && switchFeatureOn(hooks)) || changed;
}

bool installScript(const AgentHookInstaller& installer) {
  // Agents read the path in JSON, which can hold no other bytes; a command that names another file
  // would do nothing at best.
  if (!isValidUTF8(installer.hookScriptPath.string())) {
    throw std::system_error(
        EILSEQ, std::generic_category(),
        "Unable to hand agents the path " + repairedUTF8(installer.hookScriptPath.string()));
  }
  return writeHookScriptFile(installer.hookScriptPath, hookScriptText(installer.nodoctlPath));
}

// ---- Uninstalling: each function returns whether anything was there to remove.

// The text of a shared configuration that has lost our hooks; nothing when no file should be left.
FileContent textWithoutHooks(const Hooks& hooks, JSONValue configuration) {
  if (hooks.agent.removesEmptiedFile && configuration.object()->empty()) {
    if (!fs::is_symlink(hooks.file)) {
      return std::nullopt;
    }
    // The link stays, and what it leads to with it.
    configuration.setMember("hooks", JSONValue(JSONValue::Object()));
  }
  return hookConfigurationText(configuration);
}

FileContent withoutHooks(const Hooks& hooks, const FileContent& before) {
  switch (hooks.agent.fileKind) {
    case HookFileKind::sharedConfiguration: {
      JSONValue configuration = readHookConfiguration(before, hooks.file);
      return removeHooks(configuration, hooks.agent.target)
                 ? textWithoutHooks(hooks, std::move(configuration))
                 : before;
    }
    case HookFileKind::ownConfiguration: {
      const bool isOurs = runsHookScriptAnywhere(readHookConfiguration(before, hooks.file));
      return isOurs ? FileContent() : before;
    }
    case HookFileKind::ownExtension: {
      const bool isOurs =
          before && namesHookScript(*before) && contains(*before, "NODO_HOOK_AGENT: \"pi\"");
      return isOurs ? FileContent() : before;
    }
  }
  programmingFault("a hook file of no kind");
}

bool uninstall(const Hooks& hooks) {
  return updateFileThroughLinks(
      hooks.file, [&](const FileContent& before) { return withoutHooks(hooks, before); });
}

// ---- Reporting

using Reports = std::vector<AgentHookInstallReport>;
using Targets = std::vector<AgentHookTarget>;

enum class Failures { thrown, reported };

// What a step did: whether it changed anything, and what there is to say about that.
struct Done {
  bool changed = false;
  std::string_view message;
};

// The report of what `step` did to `path`; of its failure, unless that is to be thrown.
template <class Step>
AgentHookInstallReport reportOf(std::string_view target, const fs::path& path, Failures failures,
                                const Step& step) {
  AgentHookInstallReport report{.target = std::string(target), .path = path.string()};
  try {
    const Done done = step();
    report.changed = done.changed;
    report.message = done.message;
  } catch (const std::exception& error) {
    if (failures == Failures::thrown) {
      throw;
    }
    report.message = "failed";
    report.error = error.what();
  }
  return report;
}

Done installed(const Hooks& hooks, bool scriptChanged) {
  if (install(hooks)) {
    return {true, hooks.agent.installedMessage};
  }
  return {scriptChanged, scriptChanged ? "shared hook script updated" : "already installed"};
}

Reports installAll(const AgentHookInstaller& installer, const Targets& targets, Failures failures) {
  Reports reports;
  const AgentHookInstallReport script =
      reportOf("hook-script", installer.hookScriptPath, failures, [&]() -> Done {
        return {installScript(installer), ""};
      });
  for (const AgentHookTarget target : targets) {
    if (script.error) {
      reports.push_back(script);
      reports.back().target = rawValue(target);
      reports.back().error = "shared hook script: " + *script.error;
      continue;
    }
    const Hooks hooks = hooksOf(installer, target);
    reports.push_back(reportOf(rawValue(target), hooks.file, failures,
                               [&] { return installed(hooks, script.changed); }));
  }
  return reports;
}

bool areAllTargets(const Targets& targets) {
  return std::set(targets.begin(), targets.end()).size() == allCases<AgentHookTarget>().size();
}

Reports uninstallAll(const AgentHookInstaller& installer, const Targets& targets,
                     Failures failures) {
  Reports reports;
  for (const AgentHookTarget target : targets) {
    const Hooks hooks = hooksOf(installer, target);
    reports.push_back(reportOf(rawValue(target), hooks.file, failures, [&]() -> Done {
      const bool removed = uninstall(hooks);
      return {removed, removed ? "removed" : "not installed"};
    }));
  }
  const bool haveAllSucceeded = std::all_of(reports.begin(), reports.end(),
                                            [](const auto& report) { return report.succeeded(); });
  if (areAllTargets(targets) && haveAllSucceeded) {
    reports.push_back(reportOf("hook-script", installer.hookScriptPath, failures, [&]() -> Done {
      const bool removed = removeHookScriptFile(installer.hookScriptPath);
      return {removed, removed ? "removed" : "not present"};
    }));
  }
  return reports;
}

}  // namespace

AgentHookInstaller::AgentHookInstaller(fs::path homeDirectory,
                                       std::optional<fs::path> hookScriptPath,
                                       std::optional<std::string> nodoctlPath)
    : homeDirectory(std::move(homeDirectory)),
      hookScriptPath(hookScriptPath ? *std::move(hookScriptPath)
                                    : this->homeDirectory / ".nodo" / "nodo-agent-hook.sh"),
      nodoctlPath(std::move(nodoctlPath)) {}

std::vector<AgentHookInstallReport> AgentHookInstaller::install(const Targets& targets) const {
  return installAll(*this, targets, Failures::thrown);
}

std::vector<AgentHookInstallReport> AgentHookInstaller::installReportingFailures(
    const Targets& targets) const {
  return installAll(*this, targets, Failures::reported);
}

std::vector<AgentHookInstallReport> AgentHookInstaller::uninstall(const Targets& targets) const {
  return uninstallAll(*this, targets, Failures::thrown);
}

std::vector<AgentHookInstallReport> AgentHookInstaller::uninstallReportingFailures(
    const Targets& targets) const {
  return uninstallAll(*this, targets, Failures::reported);
}

}  // namespace nodo
