#include <NODOCore/base/Files.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/hooks/AgentHookInstaller.h>
#include <NODOCore/hooks/HookScript.h>
#include <NODOCore/hooks/HookTargetSetup.h>

#include <cerrno>
#include <exception>
#include <set>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace nodo {

std::optional<std::string> readHookScriptFile(const std::filesystem::path& path) {
  try {
    auto content = readFile(path);
    return content && isValidUTF8(*content) ? content : std::nullopt;
  } catch (const std::system_error&) {
    return std::nullopt;
  }
}

bool isExecutableFile(const std::filesystem::path& path) {
  return ::faccessat(AT_FDCWD, path.c_str(), X_OK, AT_EACCESS) == 0;
}

bool writeHookScriptFile(const std::filesystem::path& path, std::string_view text) {
  if (readHookScriptFile(path) == text && isExecutableFile(path)) {
    return false;
  }
  makeFolder(path.parent_path());
  replaceFile(path, text, std::filesystem::perms(0755));
  return true;
}

bool removeHookScriptFile(const std::filesystem::path& path) {
  if (::unlink(path.c_str()) == 0) {
    return true;
  }
  if (errno != ENOENT && errno != ENOTDIR) {
    throwErrno("Unable to remove", path.string());
  }
  return false;
}

namespace {

namespace fs = std::filesystem;

HookTargetSetup setupOf(const AgentHookInstaller& installer, AgentHookTarget target) {
  return {target, hookConfigurationFile(target, installer.homeDirectory), installer.hookScriptPath};
}

bool writeScript(const AgentHookInstaller& installer) {
  // Agents read the path in JSON, which can hold no other bytes; a command that names another file
  // would do nothing at best.
  if (!isValidUTF8(installer.hookScriptPath.string())) {
    throw std::system_error(
        EILSEQ, std::generic_category(),
        "Unable to hand agents the path " + repairedUTF8(installer.hookScriptPath.string()));
  }
  return writeHookScriptFile(installer.hookScriptPath, hookScriptText(installer.nodoctlPath));
}

AgentHookInstallReport reportOf(const HookTargetSetup& setup, bool changed, std::string message) {
  return {.target = std::string(rawValue(setup.target)),
          .path = setup.configurationFile.string(),
          .changed = changed,
          .message = std::move(message)};
}

AgentHookInstallReport installTarget(const HookTargetSetup& setup, bool scriptChanged) {
  const bool changed = setup.install();
  if (changed) {
    return reportOf(setup, true, std::string(hookTargetFacts(setup.target).installedMessage));
  }
  return reportOf(setup, scriptChanged,
                  scriptChanged ? "shared hook script updated" : "already installed");
}

AgentHookInstallReport uninstallTarget(const HookTargetSetup& setup) {
  const bool removed = setup.uninstall();
  return reportOf(setup, removed, removed ? "removed" : "not installed");
}

AgentHookInstallReport uninstallScript(const fs::path& path) {
  const bool removed = removeHookScriptFile(path);
  return {.target = "hook-script",
          .path = path.string(),
          .changed = removed,
          .message = removed ? "removed" : "not present"};
}

AgentHookInstallReport failureReport(AgentHookTarget target, const fs::path& path,
                                     std::string error) {
  return {.target = std::string(rawValue(target)),
          .path = path.string(),
          .changed = false,
          .message = "failed",
          .error = std::move(error)};
}

bool areAllTargets(const std::vector<AgentHookTarget>& targets) {
  return std::set(targets.begin(), targets.end()).size() == allCases<AgentHookTarget>().size();
}

}  // namespace

AgentHookInstaller::AgentHookInstaller(fs::path homeDirectory,
                                       std::optional<fs::path> hookScriptPath,
                                       std::optional<std::string> nodoctlPath)
    : homeDirectory(std::move(homeDirectory)),
      hookScriptPath(hookScriptPath ? *std::move(hookScriptPath)
                                    : this->homeDirectory / ".nodo" / "nodo-agent-hook.sh"),
      nodoctlPath(std::move(nodoctlPath)) {}

std::vector<AgentHookInstallReport> AgentHookInstaller::install(
    const std::vector<AgentHookTarget>& targets) const {
  const bool scriptChanged = writeScript(*this);
  std::vector<AgentHookInstallReport> reports;
  reports.reserve(targets.size());
  for (const AgentHookTarget target : targets) {
    reports.push_back(installTarget(setupOf(*this, target), scriptChanged));
  }
  return reports;
}

std::vector<AgentHookInstallReport> AgentHookInstaller::installReportingFailures(
    const std::vector<AgentHookTarget>& targets) const {
  std::vector<AgentHookInstallReport> reports;
  bool scriptChanged = false;
  try {
    scriptChanged = writeScript(*this);
  } catch (const std::exception& error) {
    for (const AgentHookTarget target : targets) {
      reports.push_back(failureReport(target, hookScriptPath,
                                      std::string("shared hook script: ") + error.what()));
    }
    return reports;
  }
  for (const AgentHookTarget target : targets) {
    const HookTargetSetup setup = setupOf(*this, target);
    try {
      reports.push_back(installTarget(setup, scriptChanged));
    } catch (const std::exception& error) {
      reports.push_back(failureReport(target, setup.configurationFile, error.what()));
    }
  }
  return reports;
}

std::vector<AgentHookInstallReport> AgentHookInstaller::uninstall(
    const std::vector<AgentHookTarget>& targets) const {
  std::vector<AgentHookInstallReport> reports;
  reports.reserve(targets.size() + 1);
  for (const AgentHookTarget target : targets) {
    reports.push_back(uninstallTarget(setupOf(*this, target)));
  }
  if (areAllTargets(targets)) {
    reports.push_back(uninstallScript(hookScriptPath));
  }
  return reports;
}

AgentHookSetupInspection AgentHookInstaller::inspect(
    const std::vector<AgentHookTarget>& targets) const {
  const std::string expected = hookScriptText(nodoctlPath);
  const auto installed = readHookScriptFile(hookScriptPath);
  AgentHookSetupInspection inspection{.hookScriptPath = hookScriptPath.string(),
                                      .expectedHookScriptFingerprint = fingerprint(expected)};
  if (installed) {
    inspection.installedHookScriptFingerprint = fingerprint(*installed);
    inspection.hookScriptStatus = !isExecutableFile(hookScriptPath)
                                      ? AgentHookComponentStatus::notExecutable
                                  : *installed == expected ? AgentHookComponentStatus::current
                                                           : AgentHookComponentStatus::outdated;
  }
  std::set<AgentHookTarget> inspected;
  for (const AgentHookTarget target : targets) {
    if (inspected.insert(target).second) {
      const HookTargetSetup setup = setupOf(*this, target);
      inspection.targets.push_back({target, setup.configurationFile.string(), setup.status()});
    }
  }
  return inspection;
}

}  // namespace nodo
