#include <NODOCore/base/Errors.h>
#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/hooks/AgentHookInstaller.h>

#include <algorithm>

namespace nodo {

NODO_JSON_RECORD(AgentHookInstallReport, fields, report) {
  fields.required("target", report.target);
  fields.required("path", report.path);
  fields.required("changed", report.changed);
  fields.required("message", report.message);
  fields.optional("error", report.error);
}

namespace {

std::int64_t countWith(const std::vector<AgentHookTargetInspection>& targets,
                       bool (*predicate)(AgentHookComponentStatus)) {
  return std::count_if(targets.begin(), targets.end(),
                       [predicate](const auto& target) { return predicate(target.status); });
}

}  // namespace

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

}  // namespace nodo
