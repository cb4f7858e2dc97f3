#include <NODOCore/base/LocalTime.h>
#include <NODOCore/diagnostics/DoctorReport.h>
#include <NODOCore/hooks/HookPause.h>
#include <programs/nodoctl/StateAccess.h>
#include <programs/nodoctl/commands/Commands.h>

#include <chrono>
#include <exception>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

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

std::filesystem::path ownHome(const ToolContext& context) {
  const auto home = homeFolder(context.environment);
  if (!home) {
    throw std::runtime_error("HOME is not set, so nobody knows whose hooks are meant");
  }
  return *home;
}

}  // namespace

std::vector<std::string> pauseHints(std::optional<Date> end, Date now) {
  if (!end) {
    return {};
  }
  return {"your agents' hooks are paused until " + clockText(*end, now) +
          "; 'nodoctl resume' ends that"};
}

Answer perform(const StatusCommand& command, const ToolContext& context) {
  const auto home = homeFolder(context.environment);
  const Date now = context.now();
  return {.output = shown(stateAccess(command.daemon, context).status().report, command.json),
          .hints = pauseHints(home ? hooksPausedUntil(*home, now) : std::nullopt, now)};
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

Answer perform(const PauseCommand& command, const ToolContext& context) {
  // First, as a hook that asks meanwhile would begin a new timer.
  const Date now = context.now();
  const Date end = now + std::chrono::minutes(command.minutes);
  pauseHooks(ownHome(context), end);
  Answer answer = perform(StopCommand{.daemon = command.daemon}, context);
  answer.output.insert(0, "Your agents' hooks are paused until " + clockText(end, now) +
                              "; 'nodoctl resume' ends that.\n");
  return answer;
}

Answer perform(const ResumeCommand& /*command*/, const ToolContext& context) {
  resumeHooks(ownHome(context));
  return {.output = "Your agents' hooks ask again from their next event on.\n"};
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
  const auto processes = context.machine.processListing->listProcesses();
  std::vector<AgentProcess> agents = AgentDetector().detect(processes);
  return {.output = command.json ? jsonDocument(agents)
                                 : reportText(withoutLaunchers(std::move(agents), processes))};
}

}  // namespace nodo::nodoctl
