#pragma once

#include <NODOCore/base/Date.h>
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

struct MenuView {
  MenuBarIconState icon = MenuBarIconState::loading;
  std::optional<std::string> countdown;  ///< beside the icon, e.g. "2h5m"
  std::optional<std::string> failure;    ///< of the last wish: it comes before everything else
  std::string headline;
  std::vector<std::string> notices;  ///< who asked, requests, agents, a pause: a line each
  std::vector<MenuEntry> keepAwake;  ///< below "Keep awake for"
  std::optional<MenuEntry> stop;     ///< where there is something to stop
  std::optional<MenuEntry> pause;    ///< pauses the hooks, or resumes them
  std::optional<MenuEntry> setup;    ///< the setup line, and then its action
  std::vector<AgentHookActionResultRow> hookRows;  ///< what the last setup of hooks did

  bool operator==(const MenuView&) const = default;
};

/// The icon's name for who cannot see it, and its tool tip.
std::string iconText(const MenuView& view);

/// What is known, from the replies as they come. Pure, but for the time zone that times are told
/// in.
class MenuModel {
 public:
  /// `restartCommand` is the platform's, for the setup line's advice.
  explicit MenuModel(std::string_view restartCommand) : restartCommand_(restartCommand) {}

  /// Notes that a wish was made: its menu says so until its reply is there.
  void asked(const Wish& wish);

  /// The facts of the newest question win, in whatever order replies come. A failed wish is told of
  /// until the next one.
  void take(const Reply& reply);

  MenuView view(Date now) const;

  /// The requests, the lock and the vetoes of the twelve hours before `now`; nothing as long as
  /// nothing is known.
  std::optional<HistoryReport> history(Date now) const;

  /// How long nothing else is to be shown, unless a reply comes; nothing: for ever.
  std::optional<Seconds> timeToRedraw(Date now) const;

 private:
  void addNotices(MenuView& view, const StatusReport& status, Date now) const;
  std::optional<MenuEntry> setupEntry() const;

  std::string restartCommand_;
  std::optional<nodoctl::HealthFacts> facts_;
  std::uint64_t factsNumber_ = 0;           // of the question that they answer
  std::optional<std::string> lookFailure_;  // why the last look gave none
  std::optional<std::string> wishFailure_;
  std::optional<AgentHooksSetupStatus> hooksStatus_;  // during and after an action
  std::vector<AgentHookActionResultRow> hookRows_;
};

}  // namespace nodo::menu
