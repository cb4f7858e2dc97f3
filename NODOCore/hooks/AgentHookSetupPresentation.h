#pragma once

#include <NODOCore/base/TextEnum.h>
#include <NODOCore/hooks/AgentHookInstaller.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace nodo {

class JSONReader;
class JSONWriter;

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

void encode(JSONWriter& to, const AgentHookActionResultRow& row);
void decode(const JSONReader& from, AgentHookActionResultRow& row);

/// How the setup of the agents' hooks stands.
struct AgentHooksSetupStatus {
  /// An action is under way.
  struct Installing {
    AgentHookSetupAction action = AgentHookSetupAction::install;

    bool operator==(const Installing&) const = default;
  };

  /// All is in place.
  struct Ready {
    std::string message;

    bool operator==(const Ready&) const = default;
  };

  /// What is in place is not what this version would write.
  struct Outdated {
    std::string message;

    bool operator==(const Outdated&) const = default;
  };

  /// Some agents lack their hooks.
  struct Partial {
    std::int64_t installed = 0;
    std::int64_t total = 0;

    bool operator==(const Partial&) const = default;
  };

  /// An action failed, or what is in place cannot be told.
  struct Failed {
    std::string message;

    bool operator==(const Failed&) const = default;
  };

  /// Not known yet.
  struct Checking {
    bool operator==(const Checking&) const = default;
  };

  std::variant<Installing, Ready, Outdated, Partial, Failed, Checking> value = Checking{};

  /// The status as people read it.
  std::string displayName() const;

  bool isReady() const { return std::holds_alternative<Ready>(value); }

  bool needsUpdate() const { return std::holds_alternative<Outdated>(value); }

  bool isInstalling() const { return std::holds_alternative<Installing>(value); }

  bool isBusy() const { return isInstalling() || std::holds_alternative<Checking>(value); }

  bool operator==(const AgentHooksSetupStatus&) const = default;
};

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
