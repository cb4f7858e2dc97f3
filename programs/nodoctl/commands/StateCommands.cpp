#include <NODOCore/base/Errors.h>
#include <NODOCore/diagnostics/DoctorReport.h>
#include <programs/nodoctl/ReportAnswer.h>
#include <programs/nodoctl/commands/StateCommands.h>

namespace nodo::nodoctl {
namespace {

std::optional<ActivationRequester> requesterFrom(const Invocation& invocation, Date now) {
  if (!invocation.requester && !invocation.context && !invocation.event) {
    return std::nullopt;
  }
  return ActivationRequester(invocation.requester.value_or(""), invocation.context,
                             invocation.event, now);
}

Answer repair(const Invocation& invocation, StateAccess& state) {
  const SourcedStatus repaired = state.repair();
  if (invocation.json) {
    return {.output = jsonDocument(repaired.report)};
  }
  const std::string text =
      DoctorReportFormatter::formatRepairResult(repaired.report, repaired.source);
  return {.output = text + "\n"};
}

}  // namespace

StateAccess stateAccess(const Invocation& invocation, const ToolContext& context) {
  return {{.bus = invocation.bus, .timeout = invocation.helperTimeout},
          context,
          [console = context.console()](const std::string& reason) {
            console.complain(localStateNotice(reason));
          }};
}

Answer performOnState(const Invocation& invocation, const ToolContext& context) {
  StateAccess state = stateAccess(invocation, context);
  switch (invocation.command) {
    case Command::manual:
      return answer(invocation, state
                                    .manual({.minutes = invocation.minutes,
                                             .extendOnly = invocation.extendOnly,
                                             .requester = requesterFrom(invocation, context.now())})
                                    .report);
    case Command::stop:
      return answer(invocation, state.stop().report);
    case Command::repair:
      return repair(invocation, state);
    case Command::reconcile:
      return answer(invocation,
                    invocation.simulate ? state.simulatedReconcile() : state.reconcile());
    case Command::status:
      return answer(invocation, state.status().report);
    default:
      programmingFault("a command that is not about the state");
  }
}

}  // namespace nodo::nodoctl
