#include <NODOCore/base/ProgrammingFault.h>
#include <NODOCore/hooks/AgentHookSetupPresentation.h>
#include <NODOCore/hooks/AgentHookTarget.h>

#include <algorithm>
#include <string_view>

namespace nodo {
namespace {

using Action = AgentHookSetupAction;
using State = AgentHookActionResultState;
using Status = AgentHooksSetupStatus;

struct OfferedAction {
  std::optional<Action> operator()(const Status::Installing&) const { return std::nullopt; }

  std::optional<Action> operator()(const Status::Ready&) const { return Action::reinstall; }

  std::optional<Action> operator()(const Status::Outdated&) const { return Action::update; }

  std::optional<Action> operator()(const Status::Partial&) const { return Action::install; }

  std::optional<Action> operator()(const Status::Failed&) const { return Action::install; }

  std::optional<Action> operator()(const Status::Checking&) const { return std::nullopt; }
};

std::string_view pastTense(Action action) {
  switch (action) {
    case Action::install:
      return "installed";
    case Action::update:
      return "updated";
    case Action::reinstall:
      return "reinstalled";
  }
  programmingFault("a setup action that is none of its cases");
}

AgentHookActionResultRow resultRow(Action action, AgentHookTarget target,
                                   const AgentHookInstallReport& report) {
  AgentHookActionResultRow row{.target = report.target,
                               .targetDisplayName = std::string(displayName(target)),
                               .state = State::unchanged,
                               .message = "unchanged"};
  if (report.error) {
    row.state = State::failed;
    row.message = *report.error;
  } else if (report.changed) {
    row.state = State::updated;
    row.message = pastTense(action);
  }
  return row;
}

// "Claude Code", "Claude Code and Codex", "Claude Code, Codex, and Pi".
std::string listed(const std::vector<std::string>& names) {
  std::string text;
  for (std::size_t index = 0; index < names.size(); ++index) {
    if (index > 0) {
      const bool isLast = index + 1 == names.size();
      text += isLast ? (names.size() == 2 ? " and " : ", and ") : ", ";
    }
    text += names[index];
  }
  return text;
}

}  // namespace

std::optional<AgentHookSetupAction> AgentHookSetupPresentation::action(
    const AgentHooksSetupStatus& status) {
  return std::visit(OfferedAction(), status.value);
}

std::string AgentHookSetupPresentation::actionTitle(const AgentHooksSetupStatus& status) {
  if (const auto* installing = std::get_if<Status::Installing>(&status.value)) {
    return std::string(busyTitle(installing->action));
  }
  const auto offered = action(status);
  return offered ? std::string(buttonTitle(*offered)) : "Checking...";
}

AgentHooksSetupStatus AgentHookSetupPresentation::startedStatus(AgentHookSetupAction action) {
  return {Status::Installing{action}};
}

std::vector<AgentHookActionResultRow> AgentHookSetupPresentation::resultRows(
    AgentHookSetupAction action, const std::vector<AgentHookInstallReport>& reports) {
  std::vector<AgentHookActionResultRow> rows;
  for (const AgentHookInstallReport& report : reports) {
    if (const auto target = fromRawValue<AgentHookTarget>(report.target)) {
      rows.push_back(resultRow(action, *target, report));
    }
  }
  return rows;
}

AgentHooksSetupStatus AgentHookSetupPresentation::completedStatus(
    AgentHookSetupAction action, const std::vector<AgentHookInstallReport>& reports) {
  const auto rows = resultRows(action, reports);
  std::vector<std::string> updated;
  for (const AgentHookActionResultRow& row : rows) {
    if (row.state == State::failed) {
      return {Status::Failed{std::string(failureStatusTitle(action))}};
    }
    if (row.state == State::updated) {
      updated.push_back(row.targetDisplayName);
    }
  }
  if (updated.empty()) {
    return {Status::Ready{"Hooks already current"}};
  }
  return {Status::Ready{"Hooks " + std::string(pastTense(action)) + " for " + listed(updated)}};
}

}  // namespace nodo
