#include <NODOCore/base/JSONCoding.h>
#include <programs/nodoctl/commands/Commands.h>
#include <programs/nodoctl/commands/Health.h>
#include <programs/nodoctl/commands/MenuDisplay.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <csignal>
#include <memory>
#include <stdexcept>

#include <poll.h>

namespace nodo::nodoctl {
namespace {

bool writesToTerminal(const ToolContext& context) {
  return context.terminal && context.terminal->isTerminal();
}

WatchView viewOf(const HealthFacts& facts, const ToolContext& context) {
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

// What "watch" knows. The daemon is asked when it tells of a change, and as long as it cannot tell,
// or cannot be asked, every now and then.
class Watched {
 public:
  Watched(const WatchCommand& command, const ToolContext& context)
      : command_(command), context_(context) {
    ask();
  }

  WatchView view() const { return viewOf(facts_, context_); }

  // Waits for it to tell.
  pollfd events() const {
    return {.fd = news_ ? news_->descriptor() : -1, .events = POLLIN, .revents = 0};
  }

  // Until something else is to be shown though nothing happens.
  Seconds timeToWait() const {
    constexpr Seconds minute{60};
    const Date now = context_.now();
    Seconds wait = minute;
    if (const auto end = facts_.status.report.state.manualUntil; end && *end > now) {
      // What is left is shown in whole minutes.
      const Seconds beyond(std::fmod((*end - now).count(), minute.count()));
      wait = beyond > Seconds(0) ? beyond : minute;
    }
    return isDeaf() ? std::min(wait, std::max(timeToAsk(now), Seconds(0))) : wait;
  }

  // Takes in what came and the time that passed.
  void follow(const pollfd& events) {
    const Date now = context_.now();
    if ((events.revents != 0 && hears()) || (isDeaf() && timeToAsk(now) <= Seconds(0))) {
      ask();
    } else {
      lookAgain(facts_, context_);
    }
  }

 private:
  bool isDeaf() const { return !news_ || facts_.status.unavailable; }

  Seconds timeToAsk(Date now) const {
    const Seconds passed = now - asked_;
    return passed < Seconds(0) ? Seconds(0) : Seconds(command_.interval) - passed;
  }

  bool hears() {
    try {
      return news_->take();
    } catch (const std::runtime_error&) {
      news_.reset();
      return true;
    }
  }

  // Listens before it asks, so that no change is missed between.
  void ask() {
    if (isDeaf()) {
      news_ = context_.listenForChanges(command_.daemon.bus, Seconds(command_.daemon.timeout));
    }
    asked_ = context_.now();
    facts_ = gatherHealth(command_.daemon, context_, HealthDepth::picture);
  }

  const WatchCommand& command_;
  const ToolContext& context_;
  HealthFacts facts_;
  Date asked_;
  std::unique_ptr<ChangeNews> news_;
};

// Whether it is to end by what came from the terminal: a "q", or that nobody reads any more.
bool isDismissed(const pollfd& events, const ToolContext& context) {
  if ((events.revents & (POLLERR | POLLHUP | POLLNVAL)) != 0) {
    return true;
  }
  return (events.revents & POLLIN) != 0 && context.terminal->typed().find('q') != std::string::npos;
}

pollfd terminalEvents(const ToolContext& context) {
  return context.terminal ? context.terminal->events()
                          : pollfd{.fd = -1, .events = 0, .revents = 0};
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
  const WatchView view =
      viewOf(gatherHealth(command.daemon, context, HealthDepth::picture), context);
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
    Watched watched(command, context);
    while (!isOver) {
      display->show(watched.view());
      std::array events{terminalEvents(context), watched.events()};
      last = signals->next(watched.timeToWait(), events);
      isOver = last ? ends(*last, *display) : isDismissed(events[0], context);
      if (!isOver) {
        watched.follow(events[1]);
      }
    }
  }
  if (last && last->number != SIGINT) {
    raiseWithDefaultAction(last->number);
  }
  return {};
}

}  // namespace nodo::nodoctl
