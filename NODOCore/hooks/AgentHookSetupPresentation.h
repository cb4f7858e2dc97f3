#pragma once

#include <NODOCore/hooks/AgentHookActionResultRow.h>
#include <NODOCore/hooks/AgentHookInstallReport.h>
#include <NODOCore/hooks/AgentHookSetupAction.h>
#include <NODOCore/hooks/AgentHooksSetupStatus.h>

#include <optional>
#include <string>
#include <vector>

namespace nodo {

/// The setup entry of the menu: what it offers, and what it says afterwards. Pure.
struct AgentHookSetupPresentation {
  /// The action to offer; none while something is under way.
  static std::optional<AgentHookSetupAction> action(const AgentHooksSetupStatus& status);

  /// The text of the button, also while it cannot be pressed.
  static std::string actionTitle(const AgentHooksSetupStatus& status);

  static AgentHooksSetupStatus startedStatus(AgentHookSetupAction action);

  /// A row for each report of an agent, in the reports' order. The report of the shared script is
  /// left out: it is no agent of its own.
  static std::vector<AgentHookActionResultRow> resultRows(
      AgentHookSetupAction action, const std::vector<AgentHookInstallReport>& reports);

  /// The status after the action: failed when it failed for any agent, else ready, with a message
  /// that names the agents for which something was done.
  static AgentHooksSetupStatus completedStatus(AgentHookSetupAction action,
                                               const std::vector<AgentHookInstallReport>& reports);
};

}  // namespace nodo
