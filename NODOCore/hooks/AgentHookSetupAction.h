#pragma once

#include <NODOCore/base/TextEnum.h>

#include <array>
#include <string_view>

namespace nodo {

/// What the setup entry of the menu offers to do with the agents' hooks.
enum class AgentHookSetupAction { install, update, reinstall };

template <>
struct EnumTexts<AgentHookSetupAction> {
  static constexpr std::array cases{EnumText{AgentHookSetupAction::install, "install"},
                                    EnumText{AgentHookSetupAction::update, "update"},
                                    EnumText{AgentHookSetupAction::reinstall, "reinstall"}};
};

/// The button that starts the action ("Install Hooks"), and what it says meanwhile
/// ("Installing...").
std::string_view buttonTitle(AgentHookSetupAction action);
std::string_view busyTitle(AgentHookSetupAction action);

/// The setup's status during the action ("Installing hooks"), and after its failure.
std::string_view busyStatusTitle(AgentHookSetupAction action);
std::string_view failureStatusTitle(AgentHookSetupAction action);

}  // namespace nodo
