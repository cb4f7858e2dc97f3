#include <NODOCore/base/LocalTime.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/diagnostics/DoctorReport.h>
#include <NODOCore/diagnostics/Findings.h>
#include <NODOCore/diagnostics/Headline.h>
#include <programs/nodo-menu/MenuModel.h>
#include <programs/nodo-menu/Notices.h>
#include <programs/nodoctl/commands/Commands.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <utility>

namespace nodo::menu {
namespace {

constexpr Seconds minute(60);

// The daemon itself tells of the end of its timer, and that takes a moment.
constexpr Seconds patience(2);

constexpr std::string_view notKnown = "It is not known whether this computer is kept awake.";

// Whether what the daemon says and what the machine says go together as they do but for a moment.
bool isSure(HeadlineKind kind) {
  return kind != HeadlineKind::unconfirmed && kind != HeadlineKind::lockMissing &&
         kind != HeadlineKind::lockLeft;
}

// The status with the time that has passed since.
StatusReport statusAt(const nodoctl::HealthFacts& facts, Date now) {
  StatusReport status = facts.status.report;
  status.generatedAt = now;
  status.manualRemainingSeconds = status.state.manualRemainingSeconds(now);
  return status;
}

Headline headlineFor(const nodoctl::HealthFacts& facts, const StatusReport& status) {
  KeepAwakeFacts lock = facts.forFindings.keepAwake.value();
  lock.report = status;
  return headline(lock);
}

// None that says "all is well" stands beside words that say the opposite.
MenuBarIconState iconFor(MenuBarIconState icon, HeadlineKind kind) {
  const bool isWell = kind == HeadlineKind::keptAwake || kind == HeadlineKind::off;
  return isWell ? icon : MenuBarIconState::warning;
}

std::string agentsText(const std::vector<AgentProcess>& agents) {
  std::vector<std::string_view> names;
  for (const AgentProcess& agent : agents) {
    const std::string_view name = displayName(agent.kind);
    if (std::find(names.begin(), names.end(), name) == names.end()) {
      names.push_back(name);
    }
  }
  std::string text;
  for (const std::string_view name : names) {
    text.append(text.empty() ? "" : ", ").append(name);
  }
  return text.empty() ? "No agent runs" : "Running: " + text;
}

// How the setup of the hooks stands; its texts are not shown.
AgentHooksSetupStatus statusOf(const SetupMenuSignals& setup) {
  if (setup.hooksNeedUpdate) {
    return {AgentHooksSetupStatus::Outdated()};
  }
  if (setup.hooksAreReady) {
    return {AgentHooksSetupStatus::Ready()};
  }
  return {AgentHooksSetupStatus::Failed()};
}

}  // namespace

std::string iconText(const MenuView& view) {
  return "nodo: " + view.headline;
}

std::vector<MenuEntry> keepAwakeEntries() {
  return {{"20 minutes", KeepAwake{std::int64_t{20}}},
          {"1 hour", KeepAwake{std::int64_t{60}}},
          {"2 hours", KeepAwake{std::int64_t{120}}},
          {"4 hours", KeepAwake{std::int64_t{240}}}};
}

void MenuModel::asked(const Wish& wish) {
  if (std::holds_alternative<Look>(wish)) {
    return;
  }
  wishFailure_.reset();
  if (hooksStatus_ && hooksStatus_->isBusy()) {
    return;  // its reply is still to come
  }
  hooksStatus_.reset();
  hookRows_.clear();
  if (const auto* setUp = std::get_if<SetUpHooks>(&wish)) {
    hooksStatus_ = AgentHookSetupPresentation::startedStatus(setUp->action);
  }
}

void MenuModel::take(const Reply& reply) {
  const bool isWish = !std::holds_alternative<Look>(reply.wish);
  if (isWish) {
    wishFailure_ = reply.failure;
  }
  if (const auto* setUp = std::get_if<SetUpHooks>(&reply.wish)) {
    hooksStatus_ = reply.failure
                       ? AgentHooksSetupStatus{AgentHooksSetupStatus::Failed{
                             std::string(failureStatusTitle(setUp->action))}}
                       : AgentHookSetupPresentation::completedStatus(setUp->action, reply.reports);
    hookRows_ = AgentHookSetupPresentation::resultRows(setUp->action, reply.reports);
  }
  if (reply.number < factsNumber_) {
    return;
  }
  factsNumber_ = reply.number;
  lookFailure_ = reply.facts ? std::nullopt : reply.failure;
  if (!reply.facts) {
    return;
  }
  facts_ = reply.facts;
  const HeadlineKind kind = headline(facts_->forFindings.keepAwake.value()).kind;
  isKindNew_ = kind_ != kind;
  kind_ = kind;
  if (isWish) {
    failedUnder_ = kind;
  } else if (failedUnder_ != kind) {
    wishFailure_.reset();
  }
  if (const auto* look = std::get_if<Look>(&reply.wish); look != nullptr && look->findsReasons) {
    reasons_ = reply.facts;
  }
}

MenuView MenuModel::view(Date now) const {
  MenuView view;
  const auto& failure = wishFailure_ ? wishFailure_ : lookFailure_;
  if (failure) {
    view.failure = escapedForDisplay(*failure);
  }
  if (!facts_) {
    view.icon = menuBarIconState(std::nullopt, failure, false, false);
    view.headline =
        failure ? std::string(notKnown) : "Asking whether this computer is kept awake...";
    return view;
  }
  const StatusReport status = statusAt(*facts_, now);
  const Headline judgement = headlineFor(*facts_, status);
  const SetupMenuSignals setup = setupSignals(now);
  const bool setupNeedsAttention =
      setup.isSetupIncomplete() && !(setup.remindersSuppressed && setup.helperIsOperational());
  view.icon =
      iconFor(menuBarIconState(status, std::nullopt, facts_->forFindings.hookFallback.isActive,
                               setupNeedsAttention),
              judgement.kind);
  view.headline = judgement.text;
  if (lookFailure_) {
    view.icon = MenuBarIconState::warning;
    view.headline = notKnown;
  }
  addNotices(view, status, now);
  if (status.state.manualIsActive(now) || status.state.ownsSleepDisable) {
    view.stop = MenuEntry{"Stop keeping awake", Stop()};
  }
  const auto& pausedUntil = facts_->forFindings.hooksPausedUntil;
  view.pause = pausedUntil && *pausedUntil > now ? MenuEntry{"Resume the agents' hooks", Resume()}
                                                 : MenuEntry{"Pause for an hour", Pause()};
  view.setup = setupView(now);
  return view;
}

void MenuModel::addNotices(MenuView& view, const StatusReport& status, Date now) const {
  if (const auto fallback = fallbackText(facts_->forFindings)) {
    view.notices.push_back(*fallback);
  }
  if (const auto& last = status.state.lastRequester) {
    view.notices.push_back("Last request: " + escapedForDisplay(last->displayText()) + ", " +
                           clockText(last->requestedAt, now));
  }
  const TriggerActivitySummary requests(status.state.triggerActivityBuckets, now, 12, 12);
  view.notices.push_back(requests.menuLine());
  view.notices.push_back(agentsText(status.agents));
  const auto& pausedUntil = facts_->forFindings.hooksPausedUntil;
  for (const std::string& hint :
       nodoctl::pauseHints(pausedUntil && *pausedUntil > now ? pausedUntil : std::nullopt, now)) {
    view.notices.push_back(hint);
  }
  if (hooksStatus_) {
    view.notices.push_back(escapedForDisplay(hooksStatus_->displayName()));
  }
  for (const std::string& problem : facts_->problems) {
    view.notices.push_back(escapedForDisplay(problem));
  }
}

SetupMenuSignals MenuModel::setupSignals(Date now) const {
  SetupMenuSignals signals = nodoctl::setupSignals(*facts_);
  signals.remindersSuppressed = remindersPutOffUntil_ && *remindersPutOffUntil_ > now;
  return signals;
}

std::optional<SetupView> MenuModel::setupView(Date now) const {
  const SetupMenuSignals setup = setupSignals(now);
  const auto line = SetupMenuPresentation::setupLine(setup);
  if (!line) {
    return std::nullopt;
  }
  SetupView view{.line = *line,
                 .action = std::nullopt,
                 .isExpanded = SetupMenuPresentation::prefersExpandedSetup(setup)};
  // Of the daemon and its lock nothing can be set up from here.
  if (!setup.helperIsOperational() || setup.powerLockPending) {
    view.action = MenuEntry{nodoctl::setupAdvice(setup, restartCommand_), std::nullopt};
  } else if (hooksStatus_ && hooksStatus_->isBusy()) {
    view.action = MenuEntry{AgentHookSetupPresentation::actionTitle(*hooksStatus_), std::nullopt};
  } else if (const auto action = AgentHookSetupPresentation::action(statusOf(setup))) {
    view.action = MenuEntry{std::string(buttonTitle(*action)), SetUpHooks{*action}};
  }
  return view;
}

std::optional<WhyView> MenuModel::why(Date now) const {
  if (!reasons_) {
    return std::nullopt;
  }
  const StatusReport status = statusAt(*reasons_, now);
  FindingFacts facts = reasons_->forFindings;
  facts.now = now;
  facts.keepAwake->report = status;
  const DoctorReport report(reasons_->status.source, status, reasons_->sleepDisabled,
                            facts.hookFallback, facts.hooks);
  WhyView view{.findings = findings(facts), .report = report.text()};
  for (const std::string& hint : nodoctl::healthHints(*reasons_)) {
    view.report += "\n\n" + escapedForDisplay(hint);
  }
  return view;
}

std::optional<std::string> MenuModel::setupResult() const {
  if (!hooksStatus_ || hooksStatus_->isBusy()) {
    return std::nullopt;
  }
  std::string text = escapedForDisplay(hooksStatus_->displayName());
  if (wishFailure_) {
    text += "\n" + escapedForDisplay(*wishFailure_);
  }
  for (const AgentHookActionResultRow& row : hookRows_) {
    text += "\n" + escapedForDisplay(row.targetDisplayName + ": " + row.message);
  }
  return text;
}

std::optional<HistoryReport> MenuModel::history(Date now) const {
  constexpr Seconds shown(std::chrono::hours(12));
  if (!facts_) {
    return std::nullopt;
  }
  return HistoryReport(facts_->status.report, facts_->status.source, now - shown, now);
}

std::optional<Seconds> MenuModel::timeToRedraw(Date now) const {
  std::optional<Seconds> wait;
  if (!facts_) {
    return wait;
  }
  if (const auto end = facts_->status.report.state.manualUntil; end && *end > now) {
    // What is left is shown in whole minutes.
    const Seconds left = *end - now;
    const Seconds beyond(std::fmod(left.count(), minute.count()));
    wait = left <= minute ? left + patience : beyond > Seconds(0) ? beyond : minute;
  }
  for (const auto& end : {facts_->forFindings.hooksPausedUntil, remindersPutOffUntil_}) {
    if (end && *end > now) {
      wait = std::min(wait.value_or(*end - now), *end - now);
    }
  }
  return wait;
}

std::optional<Seconds> MenuModel::timeToAsk(Date now) const {
  constexpr Seconds withoutNews(5);
  if (!facts_ || !hearsNews_ || lookFailure_) {
    return withoutNews;
  }
  std::optional<Seconds> wait;
  if (!isSure(*kind_)) {
    wait = isKindNew_ ? patience : minute;
  }
  const auto until = [&](Date end) {
    if (end + patience > now) {
      wait = std::min(wait.value_or(end + patience - now), end + patience - now);
    }
  };
  const AgentHookFallbackStatus& fallback = facts_->forFindings.hookFallback;
  if (fallback.isActive && fallback.lastStartedAt) {
    until(*fallback.lastStartedAt + std::chrono::seconds(fallback.fallbackSeconds));
  }
  if (const auto end = facts_->status.report.state.manualUntil) {
    until(*end);
  }
  if (facts_->status.unavailable) {
    // A hook that does without the daemon is not announced either.
    wait = std::min(wait.value_or(minute), minute);
  }
  return wait;
}

}  // namespace nodo::menu
