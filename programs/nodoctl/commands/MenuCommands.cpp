#include <NODOCore/base/JSONCoding.h>
#include <programs/nodoctl/commands/Commands.h>
#include <programs/nodoctl/commands/Health.h>
#include <programs/nodoctl/commands/MenuDisplay.h>

#include <csignal>

#include <poll.h>

namespace nodo::nodoctl {
namespace {

bool writesToTerminal(const ToolContext& context) {
  return context.terminal && context.terminal->isTerminal();
}

WatchView look(const DaemonOptions& daemon, const ToolContext& context) {
  const HealthFacts facts = gatherHealth(daemon, context, HealthDepth::picture);
  const StatusReport& status = facts.status.report;
  const SetupMenuSignals setup = setupSignals(facts);
  WatchView view{
      .report = MenuReport(status, facts.status.source, facts.sleepDisabled,
                           facts.forFindings.hookFallback.isActive, setup, context.now()),
      .headline = headline(facts.forFindings.keepAwake.value()),
      .setupAdvice = setupAdvice(setup, context.restartCommand),
      .hints = healthHints(facts),
      .timerEnd = std::nullopt,
      .lastRequestAt = std::nullopt};
  const std::vector<std::string> paused =
      pauseHints(facts.forFindings.hooksPausedUntil, facts.forFindings.now);
  view.hints.insert(view.hints.end(), paused.begin(), paused.end());
  if (status.manualRemainingSeconds.value_or(0) > 0) {
    view.timerEnd = status.state.manualUntil;
  }
  if (status.state.lastRequester) {
    view.lastRequestAt = status.state.lastRequester->requestedAt;
  }
  return view;
}

std::unique_ptr<WatchDisplay> makeDisplay(bool asJSON, const ToolContext& context) {
  const bool isTerminal = writesToTerminal(context);
  const TextStyle style = textStyle(context.environment, isTerminal);
  if (!asJSON && canRedraw(context.environment, isTerminal)) {
    return std::make_unique<FrameDisplay>(context.terminal, style);
  }
  return std::make_unique<LineDisplay>(
      [asJSON, &context, style](const WatchView& view) {
        const std::string line =
            asJSON ? jsonText(encode(view.report, view.headline), JSONLayout::compact)
                   : menuSummary(view, style);
        context.console().print(line + "\n");
      },
      [&context](const std::string& hint) { context.console().complain(hint); });
}

// Whether it is to end by what came from the terminal: a "q", or that nobody reads any more.
bool isDismissed(const pollfd& events, const ToolContext& context) {
  if ((events.revents & (POLLERR | POLLHUP | POLLNVAL)) != 0) {
    return true;
  }
  return (events.revents & POLLIN) != 0 && context.terminal->typed().find('q') != std::string::npos;
}

// What a signal does to the display. True when it is to end.
bool ends(const CaughtSignal& signal, WatchDisplay& display) {
  switch (signal.number) {
    case SIGWINCH:
      display.forget();
      return false;
    case SIGCONT:
      return false;
    case SIGTSTP:
      display.suspend();
      raiseWithDefaultAction(SIGTSTP);
      display.resume();
      return false;
    default:
      return true;
  }
}

}  // namespace

Answer perform(const MenuCommand& command, const ToolContext& context) {
  const WatchView view = look(command.daemon, context);
  Answer answer{.hints = view.hints};
  if (command.json) {
    answer.output = jsonText(encode(view.report, view.headline), JSONLayout::pretty) + "\n";
    return answer;
  }
  const TextStyle style = textStyle(context.environment, writesToTerminal(context));
  for (const MenuLine& line : menuLines(view, style)) {
    answer.output += tinted(line, style) + "\n";
  }
  return answer;
}

Answer perform(const WatchCommand& command, const ToolContext& context) {
  const auto signals =
      context.catchSignals({SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP, SIGCONT, SIGWINCH});
  std::optional<CaughtSignal> last;
  bool isOver = false;
  {
    const auto display = makeDisplay(command.json, context);
    while (!isOver) {
      display->show(look(command.daemon, context));
      pollfd events = context.terminal ? context.terminal->events()
                                       : pollfd{.fd = -1, .events = 0, .revents = 0};
      last = signals->next(Seconds(command.interval), events);
      isOver = last ? ends(*last, *display) : isDismissed(events, context);
    }
  }
  if (last && last->number != SIGINT) {
    raiseWithDefaultAction(last->number);
  }
  return {};
}

}  // namespace nodo::nodoctl
