#include <NODOCore/diagnostics/DoctorReport.h>
#include <programs/nodoctl/StateAccess.h>
#include <programs/nodoctl/commands/Commands.h>

namespace nodo::nodoctl {
namespace {

// That the state is the user's own is said on standard error.
StateAccess stateAccess(const DaemonOptions& daemon, const ToolContext& context) {
  return {daemon, context, [console = context.console()](const std::string& reason) {
            console.complain(localStateNotice(reason));
          }};
}

std::optional<ActivationRequester> requesterFrom(const ManualCommand& command, Date now) {
  if (!command.requester && !command.context && !command.event) {
    return std::nullopt;
  }
  return ActivationRequester(command.requester.value_or(""), command.context, command.event, now);
}

}  // namespace

Answer perform(const StatusCommand& command, const ToolContext& context) {
  return {.output = shown(stateAccess(command.daemon, context).status().report, command.json)};
}

Answer perform(const ManualCommand& command, const ToolContext& context) {
  const ManualRequest request{.minutes = command.minutes,
                              .extendOnly = command.extendOnly,
                              .requester = requesterFrom(command, context.now())};
  const SourcedStatus status = stateAccess(command.daemon, context).manual(request);
  return {.output = shown(status.report, command.json)};
}

Answer perform(const StopCommand& command, const ToolContext& context) {
  return {.output = shown(stateAccess(command.daemon, context).stop().report, command.json)};
}

Answer perform(const RepairCommand& command, const ToolContext& context) {
  const SourcedStatus repaired = stateAccess(command.daemon, context).repair();
  if (command.json) {
    return {.output = jsonDocument(repaired.report)};
  }
  const std::string text =
      DoctorReportFormatter::formatRepairResult(repaired.report, repaired.source);
  return {.output = text + "\n"};
}

Answer perform(const ReconcileCommand& command, const ToolContext& context) {
  StateAccess state = stateAccess(command.daemon, context);
  const DaemonRunReport run = command.simulate ? state.simulatedReconcile() : state.reconcile();
  return {.output = shown(run, command.json)};
}

Answer perform(const DiagnosticsCommand& command, const ToolContext& context) {
  const SleepDiagnosticsReading reading = context.machine.sleepDiagnostics(context.now());
  Answer answer{.output = shown(reading.report, command.json)};
  if (reading.hint) {
    answer.hints.push_back(*reading.hint);
  }
  return answer;
}

Answer perform(const AgentsCommand& command, const ToolContext& context) {
  return {.output = shown(AgentDetector().detect(*context.machine.processListing), command.json)};
}

}  // namespace nodo::nodoctl
