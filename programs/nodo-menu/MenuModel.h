#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/diagnostics/Findings.h>
#include <NODOCore/hooks/AgentHookSetupPresentation.h>
#include <NODOCore/presentation/HistoryReport.h>
#include <NODOCore/presentation/MenuReport.h>
#include <programs/nodo-menu/Questions.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What icon and menu show, without the means to show it. Texts have no control characters.
namespace nodo::menu {

/// An entry that can be chosen, unless it has no wish.
struct MenuEntry {
  std::string title;
  std::optional<Wish> wish;

  bool operator==(const MenuEntry&) const = default;
};

/// What is left to set up, and what can be done about it from here.
struct SetupView {
  std::string line;
  std::optional<MenuEntry> action;  ///< where there is none from here, what a person can do
  bool isExpanded = true;           ///< it stands in the menu itself; else below its line

  bool operator==(const SetupView&) const = default;
};

struct MenuView {
  MenuBarIconState icon = MenuBarIconState::loading;
  std::optional<std::string> failure;  ///< of the last wish: it comes before everything else
  std::string headline;                ///< with what the timer has left
  std::vector<std::string> notices;    ///< who asked, requests, agents, a pause: a line each
  std::optional<MenuEntry> stop;       ///< where there is something to stop
  std::optional<MenuEntry> pause;      ///< pauses the hooks, or resumes them
  std::optional<SetupView> setup;

  bool operator==(const MenuView&) const = default;
};

/// What the window "Why?" tells beside headline and picture.
struct WhyView {
  std::vector<Finding> findings;
  std::string report;  ///< the doctor's, in lines

  bool operator==(const WhyView&) const = default;
};

/// The icon's name for who cannot see it, and its tool tip.
std::string iconText(const MenuView& view);

/// The lengths that are offered below "Keep awake for".
std::vector<MenuEntry> keepAwakeEntries();

/// What is known, from the replies as they come. Pure, but for the time zone that times are told
/// in.
class MenuModel {
 public:
  /// `restartCommand` is the platform's, for the setup line's advice.
  explicit MenuModel(std::string_view restartCommand) : restartCommand_(restartCommand) {}

  /// Notes that a wish was made: the menu says so until its reply is there.
  void asked(const Wish& wish);

  /// The facts of the newest question win, in whatever order replies come. A failed wish is told of
  /// until the next one, or until things stand otherwise.
  void take(const Reply& reply);

  /// Whether changes are heard of, from now on.
  void hearsNews(bool hears) { hearsNews_ = hears; }

  MenuView view(Date now) const;

  /// Nothing until a look has found out the reasons; then what the last such look has found.
  std::optional<WhyView> why(Date now) const;

  /// Those that were found long ago are none.
  void forgetReasons() { reasons_.reset(); }

  /// The requests, the lock and the vetoes of the twelve hours before `now`; nothing as long as
  /// nothing is known.
  std::optional<HistoryReport> history(Date now) const;

  /// What became of the last setup of hooks, in lines; nothing before there was one.
  std::optional<std::string> setupResult() const;

  /// Until then the setup neither opens by itself nor changes the icon, unless it is the daemon
  /// that is missing.
  void putOffReminders(std::optional<Date> until) { remindersPutOffUntil_ = until; }

  /// How long nothing else is to be shown, unless a reply comes; nothing: for ever.
  std::optional<Seconds> timeToRedraw(Date now) const;

  /// How long to wait for news before asking all the same: where news cannot be heard, or the end
  /// of something is not announced. Nothing: for ever.
  std::optional<Seconds> timeToAsk(Date now) const;

 private:
  void addNotices(MenuView& view, const StatusReport& status, Date now) const;
  std::optional<SetupView> setupView(Date now) const;
  SetupMenuSignals setupSignals(Date now) const;

  std::string restartCommand_;
  std::optional<nodoctl::HealthFacts> facts_;
  std::uint64_t factsNumber_ = 0;                // of the question that they answer
  std::optional<nodoctl::HealthFacts> reasons_;  // of the last look that found them out
  bool hearsNews_ = false;
  std::optional<std::string> lookFailure_;  // why the last look gave none
  std::optional<std::string> wishFailure_;
  std::optional<HeadlineKind> failedUnder_;           // what the headline was then
  std::optional<HeadlineKind> kind_;                  // of the newest facts' headline
  bool isKindNew_ = false;                            // those before had another one
  std::optional<AgentHooksSetupStatus> hooksStatus_;  // during and after an action
  std::vector<AgentHookActionResultRow> hookRows_;
  std::optional<Date> remindersPutOffUntil_;
};

}  // namespace nodo::menu
