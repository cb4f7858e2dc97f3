#include <NODOCore/base/Errors.h>
#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/hooks/AgentHookSetupPresentation.h>

namespace nodo {

NODO_JSON_RECORD(AgentHookActionResultRow, fields, row) {
  fields.required("target", row.target);
  fields.required("targetDisplayName", row.targetDisplayName);
  fields.required("state", row.state);
  fields.required("message", row.message);
}

namespace {

using Action = AgentHookSetupAction;
using State = AgentHookActionResultState;
using Status = AgentHooksSetupStatus;

struct Titles {
  std::string_view button;
  std::string_view busy;
  std::string_view busyStatus;
  std::string_view failureStatus;
  std::string_view pastTense;
};

Titles titles(Action action) {
  switch (action) {
    case Action::install:
      return {"Install Hooks", "Installing...", "Installing hooks", "Hook install failed",
              "installed"};
    case Action::update:
      return {"Update Hooks", "Updating...", "Updating hooks", "Hook update failed", "updated"};
    case Action::reinstall:
      return {"Reinstall", "Reinstalling...", "Reinstalling hooks", "Hook reinstall failed",
              "reinstalled"};
  }
  programmingFault("a setup action that is none of its cases");
}

struct DisplayName {
  std::string operator()(const Status::Installing& status) const {
    return std::string(busyStatusTitle(status.action));
  }

  std::string operator()(const Status::Ready& status) const { return status.message; }

  std::string operator()(const Status::Outdated& status) const { return status.message; }

  std::string operator()(const Status::Partial& status) const {
    return std::to_string(status.installed) + "/" + std::to_string(status.total) +
           " hook targets installed";
  }

  std::string operator()(const Status::Failed& status) const { return status.message; }

  std::string operator()(const Status::Checking&) const { return "Checking hooks"; }
};

struct OfferedAction {
  std::optional<Action> operator()(const Status::Installing&) const { return std::nullopt; }

  std::optional<Action> operator()(const Status::Ready&) const { return Action::reinstall; }

  std::optional<Action> operator()(const Status::Outdated&) const { return Action::update; }

  std::optional<Action> operator()(const Status::Partial&) const { return Action::install; }

  std::optional<Action> operator()(const Status::Failed&) const { return Action::install; }

  std::optional<Action> operator()(const Status::Checking&) const { return std::nullopt; }
};

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
    row.message = titles(action).pastTense;
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

std::string_view buttonTitle(AgentHookSetupAction action) {
  return titles(action).button;
}

std::string_view busyTitle(AgentHookSetupAction action) {
  return titles(action).busy;
}

std::string_view busyStatusTitle(AgentHookSetupAction action) {
  return titles(action).busyStatus;
}

std::string_view failureStatusTitle(AgentHookSetupAction action) {
  return titles(action).failureStatus;
}

std::string AgentHooksSetupStatus::displayName() const {
  return std::visit(DisplayName(), value);
}

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
  return {
      Status::Ready{"Hooks " + std::string(titles(action).pastTense) + " for " + listed(updated)}};
}

}  // namespace nodo
