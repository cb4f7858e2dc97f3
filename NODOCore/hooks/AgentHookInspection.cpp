#include <NODOCore/base/Errors.h>
#include <NODOCore/base/Files.h>
#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/hooks/AgentHookInstaller.h>
#include <NODOCore/hooks/HookConfiguration.h>
#include <NODOCore/hooks/HookObstacles.h>
#include <NODOCore/hooks/HookScript.h>

#include <algorithm>
#include <iterator>
#include <optional>
#include <set>
#include <utility>

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
  fields.optional("error", inspection.error);
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

// What is found of a target, with the JSON that its file holds: an empty object where there is
// none.
struct TargetLook {
  AgentHookTargetInspection inspection;
  JSONValue configuration{JSONValue::Object()};
};

TargetLook lookAtTarget(AgentHookTarget target, const AgentHookInstaller& installer) {
  const Agent& agent = agentOf(target);
  const std::filesystem::path file = installer.homeDirectory / agent.configurationFile;
  TargetLook look{.inspection = {.target = target, .path = file.string()}};
  AgentHookComponentStatus& status = look.inspection.status;
  const FileContent content = readFile(file);
  if (content && agent.fileKind == HookFileKind::ownExtension) {
    status = extensionStatus(*content, file, installer.hookScriptPath);
  } else if (content) {
    look.configuration = readHookConfiguration(content, file);
    status = statusOf(hasAllHooks(look.configuration, target, installer.hookScriptPath),
                      runsHookScriptAnywhere(look.configuration));
  }
  return look;
}

// The same, but a failure is part of what is found.
TargetLook lookReportingFailure(AgentHookTarget target, const AgentHookInstaller& installer) {
  try {
    return lookAtTarget(target, installer);
  } catch (const std::exception& error) {
    return {.inspection = {
                .target = target,
                .path = (installer.homeDirectory / agentOf(target).configurationFile).string(),
                .error = error.what()}};
  }
}

AgentHookComponentStatus scriptStatus(const std::filesystem::path& script,
                                      const std::string& installed, const std::string& expected) {
  return isExecutableFile(script) ? statusOf(installed == expected, true)
                                  : AgentHookComponentStatus::notExecutable;
}

AgentHookSetupInspection inspectScript(const AgentHookInstaller& installer,
                                       const std::optional<std::string>& installed) {
  const std::string expected = hookScriptText(installer.nodoctlPath);
  AgentHookSetupInspection inspection{.hookScriptPath = installer.hookScriptPath.string(),
                                      .expectedHookScriptFingerprint = fingerprint(expected)};
  if (installed) {
    inspection.hookScriptStatus = scriptStatus(installer.hookScriptPath, *installed, expected);
    inspection.installedHookScriptFingerprint = fingerprint(*installed);
  }
  return inspection;
}

std::vector<AgentHookTarget> eachOnce(const std::vector<AgentHookTarget>& targets) {
  std::vector<AgentHookTarget> once;
  std::set<AgentHookTarget> seen;
  std::copy_if(targets.begin(), targets.end(), std::back_inserter(once),
               [&seen](AgentHookTarget target) { return seen.insert(target).second; });
  return once;
}

}  // namespace

AgentHookSetupInspection AgentHookInstaller::inspect(
    const std::vector<AgentHookTarget>& targets) const {
  AgentHookSetupInspection inspection = inspectScript(*this, readHookScriptFile(hookScriptPath));
  for (const AgentHookTarget target : eachOnce(targets)) {
    inspection.targets.push_back(lookAtTarget(target, *this).inspection);
  }
  return inspection;
}

AgentHookSetupInspection AgentHookInstaller::inspectReportingFailures(
    const std::vector<AgentHookTarget>& targets, const HookSurroundings& surroundings,
    std::vector<HookObstacle>& obstacles) const {
  const auto installed = readHookScriptFile(hookScriptPath);
  AgentHookSetupInspection inspection = inspectScript(*this, installed);
  std::vector<HookObstacle> found;
  for (const AgentHookTarget target : eachOnce(targets)) {
    const TargetLook look = lookReportingFailure(target, *this);
    inspection.targets.push_back(look.inspection);
    if (isInstalled(look.inspection.status)) {
      if (auto obstacle =
              obstacleOfTarget(target, look.configuration, homeDirectory, surroundings)) {
        found.push_back(*std::move(obstacle));
      }
    }
  }
  if (inspection.installedTargetCount() > 0) {
    if (auto obstacle = obstacleOfScript(hookScriptPath, installed, homeDirectory, surroundings)) {
      obstacles.push_back(*std::move(obstacle));
    }
  }
  obstacles.insert(obstacles.end(), found.begin(), found.end());
  return inspection;
}

}  // namespace nodo
