#pragma once

#include <NODOCore/base/JSONValue.h>
#include <NODOCore/base/TextEnum.h>
#include <NODOCore/hooks/AgentHookTarget.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace nodo {

class JSONReader;

/// How an installed piece compares with what this program would install.
enum class AgentHookComponentStatus { missing, notExecutable, current, outdated };

template <>
struct EnumTexts<AgentHookComponentStatus> {
  static constexpr std::array cases{
      EnumText{AgentHookComponentStatus::missing, "missing"},
      EnumText{AgentHookComponentStatus::notExecutable, "notExecutable"},
      EnumText{AgentHookComponentStatus::current, "current"},
      EnumText{AgentHookComponentStatus::outdated, "outdated"}};
};

/// The status in words.
std::string_view displayName(AgentHookComponentStatus status);

bool isCurrent(AgentHookComponentStatus status);
/// Current or outdated.
bool isInstalled(AgentHookComponentStatus status);
bool needsUpdate(AgentHookComponentStatus status);

/// What was found of one target's hooks.
struct AgentHookTargetInspection {
  AgentHookTarget target = AgentHookTarget::claude;
  std::string path;  ///< the target's configuration file
  AgentHookComponentStatus status = AgentHookComponentStatus::missing;

  bool operator==(const AgentHookTargetInspection&) const = default;
};

/// What was found of the shared script and of each target's hooks.
struct AgentHookSetupInspection {
  std::string hookScriptPath;
  AgentHookComponentStatus hookScriptStatus = AgentHookComponentStatus::missing;
  std::string expectedHookScriptFingerprint;
  std::optional<std::string> installedHookScriptFingerprint;  ///< absent: not readable
  std::vector<AgentHookTargetInspection> targets;

  /// Whether the script and every inspected target are current.
  bool isCurrent() const;

  /// Whether the script or a target is outdated. A script that is missing or not executable is for
  /// installing again, not for updating, and does not count.
  bool needsUpdate() const;

  std::int64_t installedTargetCount() const;
  std::int64_t currentTargetCount() const;
  std::int64_t targetCount() const;

  bool operator==(const AgentHookSetupInspection&) const = default;
};

JSONValue encode(const AgentHookTargetInspection& inspection);
void decode(const JSONReader& from, AgentHookTargetInspection& inspection);
JSONValue encode(const AgentHookSetupInspection& inspection);
void decode(const JSONReader& from, AgentHookSetupInspection& inspection);

}  // namespace nodo
