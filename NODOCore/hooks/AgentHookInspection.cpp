#include <NODOCore/base/Errors.h>
#include <NODOCore/base/Files.h>
#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/hooks/AgentHookInstaller.h>
#include <NODOCore/hooks/HookConfiguration.h>
#include <NODOCore/hooks/HookScript.h>

#include <algorithm>
#include <set>

namespace nodo {

std::string_view displayName(AgentHookComponentStatus status) {
  switch (status) {
    case AgentHookComponentStatus::missing:
      return "missing";
    case AgentHookComponentStatus::notExecutable:
      return "not executable";
    case AgentHookComponentStatus::current:
      return "current";
    case AgentHookComponentStatus::outdated:
      return "outdated";
  }
  programmingFault("a component status that is none of its cases");
}

bool isCurrent(AgentHookComponentStatus status) {
  return status == AgentHookComponentStatus::current;
}

bool isInstalled(AgentHookComponentStatus status) {
  return isCurrent(status) || needsUpdate(status);
}

bool needsUpdate(AgentHookComponentStatus status) {
  return status == AgentHookComponentStatus::outdated;
}

namespace {

std::int64_t countWith(const std::vector<AgentHookTargetInspection>& targets,
                       bool (*predicate)(AgentHookComponentStatus)) {
  return std::count_if(targets.begin(), targets.end(),
                       [predicate](const auto& target) { return predicate(target.status); });
}

}  // namespace

bool AgentHookSetupInspection::isCurrent() const {
  return nodo::isCurrent(hookScriptStatus) && currentTargetCount() == targetCount();
}

bool AgentHookSetupInspection::needsUpdate() const {
  return nodo::needsUpdate(hookScriptStatus) || countWith(targets, nodo::needsUpdate) > 0;
}

std::int64_t AgentHookSetupInspection::installedTargetCount() const {
  return countWith(targets, isInstalled);
}

std::int64_t AgentHookSetupInspection::currentTargetCount() const {
  return countWith(targets, nodo::isCurrent);
}

std::int64_t AgentHookSetupInspection::targetCount() const {
  return static_cast<std::int64_t>(targets.size());
}

NODO_JSON_RECORD(AgentHookTargetInspection, fields, inspection) {
  fields.required("target", inspection.target);
  fields.required("path", inspection.path);
  fields.required("status", inspection.status);
}

NODO_JSON_RECORD(AgentHookSetupInspection, fields, inspection) {
  fields.required("hookScriptPath", inspection.hookScriptPath);
  fields.required("hookScriptStatus", inspection.hookScriptStatus);
  fields.required("expectedHookScriptFingerprint", inspection.expectedHookScriptFingerprint);
  fields.optional("installedHookScriptFingerprint", inspection.installedHookScriptFingerprint);
  fields.required("targets", inspection.targets);
}

namespace {

AgentHookComponentStatus statusOf(bool isCurrent, bool isOurs) {
  return isCurrent ? AgentHookComponentStatus::current
         : isOurs  ? AgentHookComponentStatus::outdated
                   : AgentHookComponentStatus::missing;
}

AgentHookComponentStatus extensionStatus(const std::string& text, const std::filesystem::path& file,
                                         const std::filesystem::path& script) {
  if (!isValidUTF8(text)) {
    throw DecodingError("", "UTF-8 text", "other bytes").inFile(file.string());
  }
  return statusOf(text == piExtensionText(script),
                  namesHookScript(text) && contains(text, "NODO_HOOK_AGENT"));
}

AgentHookComponentStatus targetStatus(AgentHookTarget target, const std::filesystem::path& file,
                                      const std::filesystem::path& script) {
  const FileContent content = readFile(file);
  if (!content) {
    return AgentHookComponentStatus::missing;
  }
  if (agentOf(target).fileKind == HookFileKind::ownExtension) {
    return extensionStatus(*content, file, script);
  }
  const JSONValue configuration = readHookConfiguration(content, file);
  return statusOf(hasAllHooks(configuration, target, script),
                  runsHookScriptAnywhere(configuration));
}

AgentHookComponentStatus scriptStatus(const std::filesystem::path& script,
                                      const std::string& installed, const std::string& expected) {
  return isExecutableFile(script) ? statusOf(installed == expected, true)
                                  : AgentHookComponentStatus::notExecutable;
}

}  // namespace

AgentHookSetupInspection AgentHookInstaller::inspect(
    const std::vector<AgentHookTarget>& targets) const {
  const std::string expected = hookScriptText(nodoctlPath);
  AgentHookSetupInspection inspection{.hookScriptPath = hookScriptPath.string(),
                                      .expectedHookScriptFingerprint = fingerprint(expected)};
  if (const auto installed = readHookScriptFile(hookScriptPath)) {
    inspection.hookScriptStatus = scriptStatus(hookScriptPath, *installed, expected);
    inspection.installedHookScriptFingerprint = fingerprint(*installed);
  }
  std::set<AgentHookTarget> inspected;
  for (const AgentHookTarget target : targets) {
    if (inspected.insert(target).second) {
      const std::filesystem::path file = homeDirectory / agentOf(target).configurationFile;
      inspection.targets.push_back(
          {target, file.string(), targetStatus(target, file, hookScriptPath)});
    }
  }
  return inspection;
}

}  // namespace nodo
