#include <NODOCore/base/LocalTime.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/diagnostics/Headline.h>
#include <programs/nodo-menu/MenuModel.h>
#include <programs/nodoctl/commands/Commands.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <utility>

namespace nodo::menu {
namespace {

constexpr Seconds minute(60);

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

// The report's icon, but that none that says "all is well" stands beside words that say the
// opposite.
MenuBarIconState iconFor(const MenuReport& report, HeadlineKind kind) {
  const bool isWell = kind == HeadlineKind::keptAwake || kind == HeadlineKind::off;
  return isWell ? report.iconState : MenuBarIconState::warning;
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

// The lengths that are offered, and the next full hours of the clock on the wall.
std::vector<MenuEntry> keepAwakeEntries(Date now) {
  constexpr std::array<std::int64_t, 4> lengths{20, 60, 120, 240};
  constexpr int fullHours = 6;
  constexpr int hoursOfDay = 24;
  std::vector<MenuEntry> entries;
  for (const std::int64_t length : lengths) {
    entries.push_back({timeLeftText(std::chrono::minutes(length)), KeepAwake{length}});
  }
  const auto clock = clockTimeFromText(clockText(now, now)).value();
  for (int ahead = 1; ahead <= fullHours; ++ahead) {
    const ClockTime time{.hour = (clock.hour + ahead) % hoursOfDay, .minute = 0};
    const std::string hour = std::to_string(time.hour);
    entries.push_back({(time.hour < 10 ? "until 0" : "until ") + hour + ":00", KeepAwake{time}});
  }
  return entries;
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

void MenuModel::asked(const Wish& wish) {
  if (std::holds_alternative<Look>(wish)) {
    return;
  }
  wishFailure_.reset();
  hooksStatus_.reset();
  hookRows_.clear();
  if (const auto* setUp = std::get_if<SetUpHooks>(&wish)) {
    hooksStatus_ = AgentHookSetupPresentation::startedStatus(setUp->action);
  }
}

void MenuModel::take(const Reply& reply) {
  if (!std::holds_alternative<Look>(reply.wish)) {
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
  if (reply.facts) {
    facts_ = reply.facts;
  }
}

MenuView MenuModel::view(Date now) const {
  MenuView view{.keepAwake = keepAwakeEntries(now), .hookRows = hookRows_};
  const auto& failure = wishFailure_ ? wishFailure_ : lookFailure_;
  if (failure) {
    view.failure = escapedForDisplay(*failure);
  }
  if (!facts_) {
    view.icon = menuBarIconState(std::nullopt, failure, false, false);
    view.headline = failure ? "It is not known whether this computer is kept awake."
                            : "Asking whether this computer is kept awake...";
    return view;
  }
  const StatusReport status = statusAt(*facts_, now);
  const MenuReport report(status, facts_->status.source, facts_->sleepDisabled,
                          facts_->forFindings.hookFallback.isActive, nodoctl::setupSignals(*facts_),
                          now);
  const Headline judgement = headlineFor(*facts_, status);
  view.icon = iconFor(report, judgement.kind);
  view.countdown = report.countdown;
  view.headline = judgement.text;
  addNotices(view, status, now);
  if (status.state.manualIsActive(now) || status.state.ownsSleepDisable) {
    view.stop = MenuEntry{"Stop keeping awake", Stop()};
  }
  const auto& pausedUntil = facts_->forFindings.hooksPausedUntil;
  view.pause = pausedUntil && *pausedUntil > now ? MenuEntry{"Resume the agents' hooks", Resume()}
                                                 : MenuEntry{"Pause for an hour", Pause()};
  view.setup = setupEntry();
  return view;
}

void MenuModel::addNotices(MenuView& view, const StatusReport& status, Date now) const {
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
}

std::optional<MenuEntry> MenuModel::setupEntry() const {
  const SetupMenuSignals setup = nodoctl::setupSignals(*facts_);
  const auto line = SetupMenuPresentation::setupLine(setup);
  if (!line) {
    return std::nullopt;
  }
  if (hooksStatus_ && hooksStatus_->isBusy()) {
    return MenuEntry{AgentHookSetupPresentation::actionTitle(*hooksStatus_), std::nullopt};
  }
  // Of the daemon and its lock nothing can be set up from here.
  if (setup.helperIsOperational() && !setup.powerLockPending) {
    if (const auto action = AgentHookSetupPresentation::action(statusOf(setup))) {
      return MenuEntry{*line + " - " + std::string(buttonTitle(*action)), SetUpHooks{*action}};
    }
  }
  return MenuEntry{*line + ": " + nodoctl::setupAdvice(setup, restartCommand_), std::nullopt};
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
    const Seconds beyond(std::fmod((*end - now).count(), minute.count()));
    wait = beyond > Seconds(0) ? beyond : minute;
  }
  if (const auto end = facts_->forFindings.hooksPausedUntil; end && *end > now) {
    wait = std::min(wait.value_or(*end - now), *end - now);
  }
  return wait;
}

}  // namespace nodo::menu
