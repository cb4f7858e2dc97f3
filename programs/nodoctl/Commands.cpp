#include <NODOCore/base/Errors.h>
#include <NODOCore/sensing/AgentDetector.h>
#include <programs/nodoctl/Commands.h>
#include <programs/nodoctl/Completion.h>
#include <programs/nodoctl/ReportAnswer.h>
#include <programs/nodoctl/commands/DoctorCommand.h>
#include <programs/nodoctl/commands/HooksCommand.h>
#include <programs/nodoctl/commands/MenuCommands.h>
#include <programs/nodoctl/commands/RunCommand.h>
#include <programs/nodoctl/commands/StateCommands.h>

namespace nodo::nodoctl {
namespace {

Answer diagnostics(const Invocation& invocation, const ToolContext& context) {
  const SleepDiagnosticsReading reading = context.machine.sleepDiagnostics(context.now());
  Answer made = answer(invocation, reading.report);
  if (reading.hint) {
    made.hints.push_back(*reading.hint);
  }
  return made;
}

}  // namespace

Answer perform(const Invocation& invocation, const ToolContext& context) {
  switch (invocation.command) {
    case Command::completion:
      return {.output = completionScript(invocation.shell)};
    case Command::diagnostics:
      return diagnostics(invocation, context);
    case Command::agents:
      return answer(invocation, AgentDetector().detect(*context.machine.processListing));
    case Command::hooksInstall:
    case Command::hooksUninstall:
    case Command::hooksInspect:
      return performHooks(invocation, context);
    case Command::doctor:
      return performDoctor(invocation, context);
    case Command::menu:
      return performMenu(invocation, context);
    case Command::watch:
      return performWatch(invocation, context);
    case Command::run:
      return performRun(invocation, context);
    case Command::status:
    case Command::manual:
    case Command::stop:
    case Command::repair:
    case Command::reconcile:
      return performOnState(invocation, context);
  }
  programmingFault("a command that nobody performs");
}

}  // namespace nodo::nodoctl
