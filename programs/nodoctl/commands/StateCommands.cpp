#include <NODOCore/diagnostics/DoctorReport.h>
#include <programs/nodoctl/StateAccess.h>
#include <programs/nodoctl/commands/Commands.h>

#include <exception>
#include <string>
#include <utility>

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

// Adds to the answer of a command that was to let the computer sleep what it could not do: the lock
// is the daemon's, so that no change of the own state lets go of it.
Answer unlessLockStands(Answer answer, DoctorStatusSource source, const ToolContext& context) {
  if (source == DoctorStatusSource::helper) {
    return answer;
  }
  try {
    const SleepDiagnosticsReading reading = context.machine.sleepDiagnostics(context.now());
    if (reading.hint) {
      answer.hints.push_back(*reading.hint);
    }
    if (reading.report.sleepDisabled.value_or(false)) {
      answer.hints.emplace_back(
          "the sleep lock is still on and this computer stays awake: only the daemon releases it; "
          "try again with sudo, or end the daemon");
      answer.exitStatus = exitFailure;
    }
  } catch (const std::exception& error) {
    answer.hints.push_back(std::string("whether the sleep lock is still on cannot be seen: ") +
                           error.what());
  }
  return answer;
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
  const SourcedStatus stopped = stateAccess(command.daemon, context).stop();
  return unlessLockStands({.output = shown(stopped.report, command.json)}, stopped.source, context);
}

Answer perform(const RepairCommand& command, const ToolContext& context) {
  const SourcedStatus repaired = stateAccess(command.daemon, context).repair();
  const std::string text =
      command.json
          ? jsonDocument(repaired.report)
          : DoctorReportFormatter::formatRepairResult(repaired.report, repaired.source) + "\n";
  return unlessLockStands({.output = text}, repaired.source, context);
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
