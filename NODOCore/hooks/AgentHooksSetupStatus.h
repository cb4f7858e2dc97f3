#pragma once

#include <NODOCore/hooks/AgentHookSetupAction.h>

#include <cstdint>
#include <string>
#include <variant>

namespace nodo {

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

}  // namespace nodo
