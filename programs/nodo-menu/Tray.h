#pragma once

#include <programs/nodo-menu/Desktop.h>
#include <programs/nodo-menu/MenuModel.h>
#include <programs/nodo-menu/Notices.h>
#include <programs/nodo-menu/Questions.h>

#include <QAction>
#include <QIcon>
#include <QMenu>
#include <QSystemTrayIcon>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace nodo::menu {

/// That of a state: the panel's own of that name, which it draws in its colour, or the one that is
/// built in.
QIcon iconFor(MenuBarIconState state);

/// `text` as the label of an entry, in which no character stands for the mark of a key.
QString menuLabel(const std::string& text, MenuDrawer drawer);

/// What is chosen in the menu, beside wishes.
struct TrayActions {
  std::function<void(const Wish&)> wish;  ///< to be asked
  std::function<void()> askForTime;       ///< until when the computer is to be kept awake
  std::function<void()> why;
  std::function<void(bool putOff)> putOffReminders;
  std::function<void(bool on)> startAtLogin;
  std::function<void()> menuOpens;
  std::function<void()> quit;
};

/// The menu, and the icon that it belongs to. Its entries stay the same objects and change their
/// words: panels know them by number, and a person may just be choosing one.
///
/// All on the thread of the interface.
class Tray {
 public:
  explicit Tray(TrayActions actions);

  /// Puts the icon into the panel. What is shown next has words for whoever draws the menu.
  void showIcon(MenuDrawer drawer);

  /// Shows what has changed.
  void show(const MenuView& view, bool startsAtLogin);

  /// By the desktop's own service, as soon as there is an icon.
  void notify(const Notice& notice);

  const QMenu& menu() const { return menu_; }

 private:
  void addTop();
  void addSetup();
  void addBottom();
  void showLines(const MenuView& view);
  void showSetup(const std::optional<SetupView>& setup);
  void wish(const std::optional<MenuEntry>& entry) const;

  QString label(const std::string& text) const { return menuLabel(text, drawer_); }

  TrayActions actions_;
  QMenu menu_;
  QMenu keepAwakeMenu_;
  QMenu setupMenu_;  // where the setup does not stand in the menu itself
  std::unique_ptr<QSystemTrayIcon> icon_;
  MenuDrawer drawer_ = MenuDrawer::qt;
  MenuView view_;
  std::optional<Notice> waiting_;  // for an icon

  std::vector<QAction*> lines_;  // on top; those that are not needed are hidden
  QAction* linesEnd_ = nullptr;
  QAction* stop_ = nullptr;
  QAction* pause_ = nullptr;
  QAction* setupLine_ = nullptr;
  QAction* setupAction_ = nullptr;
  QAction* reminders_ = nullptr;
  QAction* setupEnd_ = nullptr;
  QAction* login_ = nullptr;
};

}  // namespace nodo::menu
