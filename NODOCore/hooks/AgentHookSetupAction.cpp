#include <NODOCore/base/ProgrammingFault.h>
#include <NODOCore/hooks/AgentHookSetupAction.h>

namespace nodo {
namespace {

struct Titles {
  std::string_view button;
  std::string_view busy;
  std::string_view busyStatus;
  std::string_view failureStatus;
};

Titles titles(AgentHookSetupAction action) {
  switch (action) {
    case AgentHookSetupAction::install:
      return {"Install Hooks", "Installing...", "Installing hooks", "Hook install failed"};
    case AgentHookSetupAction::update:
      return {"Update Hooks", "Updating...", "Updating hooks", "Hook update failed"};
    case AgentHookSetupAction::reinstall:
      return {"Reinstall", "Reinstalling...", "Reinstalling hooks", "Hook reinstall failed"};
  }
  programmingFault("a setup action that is none of its cases");
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

}  // namespace nodo
