#pragma once

#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/base/TextEnum.h>

#include <array>
#include <string>
#include <string_view>

namespace nodo {

/// What a setup action did for one agent.
enum class AgentHookActionResultState { updated, unchanged, failed };

template <>
struct EnumTexts<AgentHookActionResultState> {
  static constexpr std::array cases{EnumText{AgentHookActionResultState::updated, "updated"},
                                    EnumText{AgentHookActionResultState::unchanged, "unchanged"},
                                    EnumText{AgentHookActionResultState::failed, "failed"}};
};

inline std::string_view displayName(AgentHookActionResultState state) {
  return rawValue(state);
}

/// The outcome of a setup action for one agent, as a menu shows it.
struct AgentHookActionResultRow {
  std::string target;             ///< the text of the hook target, e.g. "claude"
  std::string targetDisplayName;  ///< e.g. "Claude Code"
  AgentHookActionResultState state = AgentHookActionResultState::unchanged;
  std::string message;  ///< what was done, or why nothing could be

  bool operator==(const AgentHookActionResultRow&) const = default;
};

JSONValue encode(const AgentHookActionResultRow& row);
void decode(const JSONReader& from, AgentHookActionResultRow& row);

}  // namespace nodo
