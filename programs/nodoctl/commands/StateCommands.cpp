#include <NODOCore/base/LocalTime.h>
#include <NODOCore/diagnostics/DoctorReport.h>
#include <NODOCore/diagnostics/Headline.h>
#include <NODOCore/hooks/AgentHookInstaller.h>
#include <NODOCore/hooks/HookPause.h>
#include <programs/nodoctl/StateAccess.h>
#include <programs/nodoctl/commands/Commands.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace nodo::nodoctl {
namespace {

std::optional<ActivationRequester> requesterFrom(const ManualCommand& command, Date now) {
  if (!command.requester && !command.context && !command.event) {
    return std::nullopt;
  }
  return ActivationRequester(command.requester.value_or(""), command.context, command.event, now);
}

// How many minutes from now that is, rounded up.
std::int64_t minutesUntil(Date end, Date now) {
  constexpr Seconds minute{60};
  return static_cast<std::int64_t>(std::ceil((end - now) / minute));
}

// The timer as it was asked for, on the daemon or the own state.
SourcedStatus setTimer(const ManualCommand& command, StateAccess& state, Date now) {
  constexpr std::int64_t anHour = 60;
  ManualRequest request{.minutes = command.minutes.value_or(anHour),
                        .extendOnly = command.extendOnly,
                        .requester = requesterFrom(command, now)};
  if (!command.until) {
    return state.manual(request);
  }
  const Date end = nextTimeOfDay(*command.until, now);
  request.minutes = minutesUntil(end, now);
  try {
    return state.manual(request);
  } catch (const RefusedValue& refused) {
    throw RefusedValue("until " + clockText(end, now) + ": " + refused.what());
  }
}

// A status with the judgement on it.
struct JudgedStatus {
  SourcedStatus status;
  Headline headline;
  std::vector<std::string> hints = {};  ///< what could not be seen

  // Whether nobody but this command heard what was asked of the daemon.
  bool isLocal() const { return status.source == DoctorStatusSource::local; }

  // Why what was asked for is not so.
  const std::string& reason() const {
    return status.unavailable ? status.unavailable->sentence : headline.text;
  }
};

JudgedStatus judge(SourcedStatus status, const StateAccess& state, const ToolContext& context) {
  JudgedStatus judged;
  std::optional<bool> lockIsOn;
  std::optional<std::string> whyUnknown;
  try {
    SleepDiagnosticsReading reading = context.machine.sleepDiagnostics(context.now());
    lockIsOn = reading.report.sleepDisabled;
    whyUnknown = std::move(reading.hint);
  } catch (const std::exception& error) {
    whyUnknown = std::string("whether the sleep lock is on cannot be seen: ") + error.what();
  }
  judged.headline = headline(state.keepAwakeFacts(status, lockIsOn));
  judged.status = std::move(status);
  const bool makesADifference =
      judged.isLocal() || judged.headline.kind == HeadlineKind::unconfirmed;
  if (whyUnknown && makesADifference) {
    judged.hints.push_back(*std::move(whyUnknown));
  }
  return judged;
}

// The headline, and then the details.
std::string textOf(const JudgedStatus& judged) {
  return judged.headline.text + "\n" +
         (judged.isLocal() ? "Your own state, which switches no sleep lock:\n" : "") +
         reportText(judged.status.report);
}

// What a command says that was to let the computer sleep: a failure where a lock still stands.
Answer letSleep(const JudgedStatus& judged, std::string output) {
  Answer answer{.output = std::move(output), .hints = judged.hints};
  const HeadlineKind kind = judged.headline.kind;
  if (kind == HeadlineKind::lockWithoutWord) {
    answer.hints.emplace_back(
        "the sleep lock is still on and this computer stays awake: only the daemon releases it; "
        "try again with sudo, or end the daemon");
  }
  if (kind == HeadlineKind::lockWithoutWord || kind == HeadlineKind::lockLeft) {
    answer.exitStatus = exitFailure;
    answer.failure = judged.reason();
  }
  return answer;
}

Answer endTimer(const StopCommand& command, const ToolContext& context) {
  StateAccess state = stateAccess(command.daemon, context);
  const JudgedStatus judged = judge(state.stop(), state, context);
  return letSleep(judged, command.json ? jsonDocument(judged.status.report) : textOf(judged));
}

// What becomes of this user's hooks when a person ends the timer.
struct HookRest {
  std::string note = {};  ///< lines for the answer
  std::vector<std::string> hints = {};
};

// Keeps the hooks of this user, if there are any, from starting again at once what was just ended.
HookRest giveHooksARest(const ToolContext& context) {
  const auto home = homeFolder(context.environment);
  std::error_code unseen;  // who cannot look there runs no hooks from there either
  if (!home || !std::filesystem::exists(AgentHookInstaller(*home).hookScriptPath, unseen)) {
    return {};
  }
  const Date now = context.now();
  const auto paused = hooksPausedUntil(*home, now);
  if (paused) {
    return {.note = "Hooks of your agents are paused until " + clockText(*paused, now) + ".\n"};
  }
  try {
    throttleHooks(*home, now);
  } catch (const std::system_error& error) {
    return {.hints = {"hooks of your agents may start it again at once, as they cannot be told to "
                      "wait: " +
                      std::string(error.what())}};
  }
  return {.note =
              "Hooks of your agents may start it again in 2 minutes; 'nodoctl pause' keeps them "
              "quiet for longer.\n"};
}

std::filesystem::path ownHome(const ToolContext& context) {
  const auto home = homeFolder(context.environment);
  if (!home) {
    throw std::runtime_error(
        "HOME is not set, so that it is not known whose hooks are meant; set it");
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
  Answer answer{.hints = pauseHints(home ? hooksPausedUntil(*home, now) : std::nullopt, now)};
  StateAccess state = stateAccess(command.daemon, context);
  SourcedStatus status = state.status();
  if (command.json) {
    answer.output = jsonDocument(status.report);
    return answer;
  }
  const JudgedStatus judged = judge(std::move(status), state, context);
  answer.output = textOf(judged);
  answer.hints.insert(answer.hints.end(), judged.hints.begin(), judged.hints.end());
  return answer;
}

Answer perform(const ManualCommand& command, const ToolContext& context) {
  StateAccess state = stateAccess(command.daemon, context);
  SourcedStatus status = setTimer(command, state, context.now());
  if (command.json) {
    // An agent's hook would take a failure for a daemon that does not work, and keep the computer
    // awake by itself, against the very rule that lets it sleep.
    return {.output = jsonDocument(status.report)};
  }
  const JudgedStatus judged = judge(std::move(status), state, context);
  const HeadlineKind kind = judged.headline.kind;
  const bool isInVain = kind == HeadlineKind::sleepAllowed || kind == HeadlineKind::lockMissing;
  return {.output = textOf(judged),
          .hints = judged.hints,
          .exitStatus = isInVain ? exitFailure : exitSuccess,
          .failure = isInVain || judged.isLocal() ? std::optional(judged.reason()) : std::nullopt};
}

Answer perform(const StopCommand& command, const ToolContext& context) {
  // First, as a hook that asks meanwhile would begin a new timer.
  const HookRest rest = giveHooksARest(context);
  Answer answer = endTimer(command, context);
  if (!command.json) {
    answer.output += rest.note;
  }
  answer.hints.insert(answer.hints.end(), rest.hints.begin(), rest.hints.end());
  return answer;
}

Answer perform(const PauseCommand& command, const ToolContext& context) {
  // First, as above.
  const Date now = context.now();
  const Date end = now + std::chrono::minutes(command.minutes);
  pauseHooks(ownHome(context), end);
  Answer answer = endTimer({.daemon = command.daemon}, context);
  answer.output.insert(0, "Your agents' hooks are paused until " + clockText(end, now) +
                              "; 'nodoctl resume' ends that.\n");
  return answer;
}

Answer perform(const ResumeCommand& /*command*/, const ToolContext& context) {
  resumeHooks(ownHome(context));
  return {.output = "Your agents' hooks are active again.\n"};
}

Answer perform(const RepairCommand& command, const ToolContext& context) {
  StateAccess state = stateAccess(command.daemon, context);
  const JudgedStatus judged = judge(state.repair(), state, context);
  const StatusReport& report = judged.status.report;
  if (command.json) {
    return letSleep(judged, jsonDocument(report));
  }
  return letSleep(
      judged,
      judged.headline.text + "\n" +
          (judged.isLocal() ? "Only your own state was reset; the daemon could not be asked.\n"
                            : "") +
          DoctorReportFormatter::formatRepairResult(report, judged.status.source) + "\n");
}

Answer perform(const ReconcileCommand& command, const ToolContext& context) {
  StateAccess state = stateAccess(command.daemon, context);
  const DaemonRunReport run = command.simulate ? state.simulatedReconcile() : state.reconcile();
  if (command.json) {
    return {.output = jsonDocument(run)};
  }
  return {.output = (command.simulate ? "Simulated on your own state: no sleep lock was switched.\n"
                                      : "") +
                    reportText(run)};
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
