#include <NODOCore/base/Errors.h>
#include <NODOCore/base/Files.h>
#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/hooks/AgentHookInstaller.h>
#include <NODOCore/hooks/CodexConfig.h>
#include <NODOCore/hooks/HookConfiguration.h>
#include <NODOCore/hooks/HookFiles.h>
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

// What was done to the files of a target.
struct Change {
  bool ofFiles = false;
  bool ofHooks = false;  // not only of a file's layout
  HookLosses losses = {};
};

// ---- Installing

Change mergeIntoConfiguration(const Hooks& hooks) {
  Change change;
  change.ofFiles =
      updateFileThroughLinks(hooks.file, [&](const FileContent& before) -> FileContent {
        change.losses.clear();
        JSONValue configuration = readHookConfiguration(before, hooks.file, &change.losses);
        change.ofHooks = addHooks(configuration, hooks.agent.target, hooks.script, &change.losses);
        return hookConfigurationText(configuration);
      });
  return change;
}

Change writeOwnConfiguration(const Hooks& hooks) {
  const JSONValue wanted = ownHookConfiguration(hooks.agent.target, hooks.script);
  Change change;
  change.ofHooks =
      updateFileThroughLinks(hooks.file, [&](const FileContent& before) -> FileContent {
        change.losses.clear();
        const JSONValue present = readHookConfiguration(before, hooks.file, &change.losses);
        if (sameValue(present, wanted)) {
          return before;
        }
        addOtherContent(present, hooks.agent.target, change.losses);
        return hookConfigurationText(wanted);
      });
  change.ofFiles = change.ofHooks;
  return change;
}

Change writeExtension(const Hooks& hooks) {
  Change change;
  change.ofHooks =
      updateFileThroughLinks(hooks.file, [&](const FileContent& before) -> FileContent {
        change.losses.clear();
        if (before && !before->empty() && !namesHookScript(*before)) {
          change.losses.emplace_back("the extension that stood there, which was none of nodo's");
        }
        return piExtensionText(hooks.script);
      });
  change.ofFiles = change.ofHooks;
  return change;
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

Change installFile(const Hooks& hooks) {
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

// What `write` answers. A file that it makes at `path`, or where a link there leads, becomes that
// of its folder's owner.
template <class Write>
auto writtenForOwner(const fs::path& path, const Write& write) {
  const bool wasThere = fs::exists(statusOf(path));
  auto answer = write();
  if (!wasThere) {
    giveTargetToOwnerOfFolder(path);
  }
  return answer;
}

Change install(const Hooks& hooks) {
  if (hooks.agent.hasFeatureSwitch) {
    // Only to fail before anything is changed.
    codexConfigWithHooksOn(readFile(featureFile(hooks)).value_or(""), featureFile(hooks));
  }
  makeFolderOfOwner(hooks.file.parent_path());
  Change change = writtenForOwner(hooks.file, [&] { return installFile(hooks); });
  if (hooks.agent.hasFeatureSwitch &&
      writtenForOwner(featureFile(hooks), [&] { return switchFeatureOn(hooks); })) {
    change.ofFiles = change.ofHooks = true;
  }
  return change;
}

bool installScript(const AgentHookInstaller& installer) {
  // Agents read the path in JSON, which can hold no other bytes; a command that names another file
  // would do nothing at best.
  if (!isValidUTF8(installer.hookScriptPath.string())) {
    throw std::system_error(
        EILSEQ, std::generic_category(),
        "Unable to name " + repairedUTF8(installer.hookScriptPath.string()) +
            " in agents' settings, which hold UTF-8 text only; move the home folder");
  }
  const fs::path& path = installer.hookScriptPath;
  makeFolderOfOwner(path.parent_path());
  // A link in its place is replaced by a new file.
  const bool isNew = !fs::is_regular_file(linkStatusOf(path));
  const bool changed = writeHookScriptFile(path, hookScriptText(installer.nodoctlPath));
  if (changed && isNew) {
    giveToOwnerOfFolder(path);
  }
  return changed;
}

// ---- Uninstalling

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

FileContent withoutHooks(const Hooks& hooks, const FileContent& before, HookLosses& losses) {
  switch (hooks.agent.fileKind) {
    case HookFileKind::sharedConfiguration: {
      JSONValue configuration = readHookConfiguration(before, hooks.file);
      return removeHooks(configuration, hooks.agent.target, &losses)
                 ? textWithoutHooks(hooks, std::move(configuration))
                 : before;
    }
    case HookFileKind::ownConfiguration: {
      const JSONValue present = readHookConfiguration(before, hooks.file);
      if (!runsHookScriptAnywhere(present)) {
        return before;
      }
      addOtherContent(present, hooks.agent.target, losses);
      return std::nullopt;
    }
    case HookFileKind::ownExtension: {
      const bool isOurs =
          before && namesHookScript(*before) && contains(*before, "NODO_HOOK_AGENT: \"pi\"");
      return isOurs ? FileContent() : before;
    }
  }
  programmingFault("a hook file of no kind");
}

Change uninstall(const Hooks& hooks, const fs::path& home) {
  Change change;
  change.ofHooks = updateFileThroughLinks(hooks.file, [&](const FileContent& before) {
    change.losses.clear();
    return withoutHooks(hooks, before, change.losses);
  });
  change.ofFiles = change.ofHooks;
  if (change.ofHooks) {
    removeEmptyFolders(hooks.file.parent_path(), home);
  }
  return change;
}

bool uninstallScript(const AgentHookInstaller& installer) {
  const bool removed = removeHookScriptFile(installer.hookScriptPath);
  if (removed) {
    removeEmptyFolders(installer.hookScriptPath.parent_path(), installer.homeDirectory);
  }
  return removed;
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

// What `step` did. Of a configuration that is no JSON, which stays as it is, the error says what to
// do.
template <class Step>
Done doneBy(const Step& step) {
  try {
    return step();
  } catch (const DecodingError& error) {
    throw error.saying(std::string(error.what()) + ". Repair it, then run this again.");
  }
}

// The report of what `step` did to `path`; of its failure, unless that is to be thrown.
template <class Step>
AgentHookInstallReport reportOf(std::string_view target, const fs::path& path, Failures failures,
                                const Step& step) {
  AgentHookInstallReport report{.target = std::string(target), .path = path.string()};
  try {
    const Done done = doneBy(step);
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

// Tells of what was done to a target, where somebody wants to know.
void tell(AgentHookChanges* changes, const Hooks& hooks, const Change& change) {
  if (changes == nullptr) {
    return;
  }
  if (change.ofHooks) {
    changes->targets.insert(hooks.agent.target);
  }
  for (const std::string& loss : change.losses) {
    changes->losses.push_back("removed from " + hooks.file.string() + ": " + loss);
  }
}

Done installed(const Hooks& hooks, bool scriptChanged, AgentHookChanges* changes) {
  const Change change = install(hooks);
  tell(changes, hooks, change);
  return {change.ofFiles || scriptChanged, change.ofHooks  ? hooks.agent.installedMessage
                                           : scriptChanged ? "shared hook script updated"
                                                           : "already installed"};
}

Reports installAll(const AgentHookInstaller& installer, const Targets& targets, Failures failures,
                   AgentHookChanges* changes = nullptr) {
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
                               [&] { return installed(hooks, script.changed, changes); }));
  }
  return reports;
}

bool areAllTargets(const Targets& targets) {
  return std::set(targets.begin(), targets.end()).size() == allCases<AgentHookTarget>().size();
}

Reports uninstallAll(const AgentHookInstaller& installer, const Targets& targets, Failures failures,
                     AgentHookChanges* changes = nullptr) {
  Reports reports;
  for (const AgentHookTarget target : targets) {
    const Hooks hooks = hooksOf(installer, target);
    reports.push_back(reportOf(rawValue(target), hooks.file, failures, [&]() -> Done {
      const Change change = uninstall(hooks, installer.homeDirectory);
      tell(changes, hooks, change);
      return {change.ofFiles, change.ofFiles ? "removed" : "not installed"};
    }));
  }
  const bool haveAllSucceeded = std::all_of(reports.begin(), reports.end(),
                                            [](const auto& report) { return report.succeeded(); });
  if (areAllTargets(targets) && haveAllSucceeded) {
    reports.push_back(reportOf("hook-script", installer.hookScriptPath, failures, [&]() -> Done {
      const bool removed = uninstallScript(installer);
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
    const Targets& targets, AgentHookChanges* changes) const {
  return installAll(*this, targets, Failures::reported, changes);
}

std::vector<AgentHookInstallReport> AgentHookInstaller::uninstall(const Targets& targets) const {
  return uninstallAll(*this, targets, Failures::thrown);
}

std::vector<AgentHookInstallReport> AgentHookInstaller::uninstallReportingFailures(
    const Targets& targets, AgentHookChanges* changes) const {
  return uninstallAll(*this, targets, Failures::reported, changes);
}

}  // namespace nodo
