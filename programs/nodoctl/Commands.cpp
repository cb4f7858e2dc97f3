#include <NODOCore/base/DecodingError.h>
#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/control/NODOController.h>
#include <NODOCore/diagnostics/DoctorReportFormatter.h>
#include <NODOCore/power/NoopPowerManager.h>
#include <NODOCore/state/NODOError.h>
#include <programs/nodoctl/Commands.h>
#include <programs/nodoctl/Completion.h>
#include <programs/nodoctl/HooksCommand.h>
#include <programs/nodoctl/ReportText.h>
#include <programs/shared/DefaultPolicy.h>

#include <stdexcept>

namespace nodo::nodoctl {
namespace {

template <class Report>
std::string jsonDocument(const Report& report) {
  return encodeJSON(report, JSONLayout::pretty) + "\n";
}

// A report as the command line wants to see it.
template <class Report>
Answer answer(const Invocation& invocation, const Report& report) {
  return {.output = invocation.json ? jsonDocument(report) : reportText(report)};
}

StateStore userStore(const Environment& environment) {
  try {
    return StateStore::defaultStore(environment);
  } catch (const NODOError& error) {
    throw std::runtime_error(std::string(error.what()) + "; set HOME or NODO_STATE_DIR");
  }
}

// The user's own state and this machine.
NODOController localController(const ToolContext& context) {
  return {.store = userStore(context.environment),
          .detector = {},
          .processListing = context.machine.processListing,
          .snapshotProvider = context.machine.snapshotProvider,
          .decisionEngine = {defaultPolicy}};
}

std::optional<ActivationRequester> requesterFrom(const Invocation& invocation, Date now) {
  if (!invocation.requester && !invocation.context && !invocation.event) {
    return std::nullopt;
  }
  return ActivationRequester(invocation.requester.value_or(""), invocation.context,
                             invocation.event, now);
}

Answer repair(const Invocation& invocation, const NODOController& controller, Date now) {
  const StatusReport report = controller.repairState(now);
  if (invocation.json) {
    return {.output = jsonDocument(report)};
  }
  const std::string text =
      DoctorReportFormatter::formatRepairResult(report, DoctorStatusSource::local);
  return {.output = text + "\n"};
}

StatusReport manual(const Invocation& invocation, const NODOController& controller, Date now) {
  return controller.enableManual(invocation.minutes, now, invocation.extendOnly,
                                 requesterFrom(invocation, now));
}

DaemonRunReport reconcile(const Invocation& invocation, const NODOController& controller,
                          Date now) {
  if (!invocation.simulate) {
    throw std::runtime_error(
        "only the daemon may switch the sleep lock, and it cannot be reached; "
        "'nodoctl reconcile --simulate' shows what a pass would do");
  }
  NoopPowerManager nobody;
  return controller.reconcile(nobody, std::nullopt, now);
}

Answer diagnostics(const Invocation& invocation, const ToolContext& context) {
  const SleepDiagnosticsReading reading = context.machine.sleepDiagnostics(context.now());
  Answer made = answer(invocation, reading.report);
  if (reading.hint) {
    made.hints.push_back(*reading.hint);
  }
  return made;
}

Answer performLocally(const Invocation& invocation, const ToolContext& context) {
  const NODOController controller = localController(context);
  const Date now = context.now();
  try {
    switch (invocation.command) {
      case Command::manual:
        return answer(invocation, manual(invocation, controller, now));
      case Command::stop:
        return answer(invocation, controller.stop(now));
      case Command::repair:
        return repair(invocation, controller, now);
      case Command::reconcile:
        return answer(invocation, reconcile(invocation, controller, now));
      default:
        return answer(invocation, controller.status(now));
    }
  } catch (const DecodingError& error) {
    throw std::runtime_error("the state file " + controller.store.stateURL().string() +
                             " cannot be read: " + error.what() +
                             ". It was left as it is; move it away to begin with a fresh state");
  }
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
    default:
      return performLocally(invocation, context);
  }
}

}  // namespace nodo::nodoctl
