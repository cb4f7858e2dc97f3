#pragma once

#include <programs/nodo-menu/HookLog.h>
#include <programs/nodo-menu/LoginItem.h>
#include <programs/nodo-menu/MenuModel.h>
#include <programs/nodo-menu/Notices.h>
#include <programs/nodo-menu/Questions.h>
#include <programs/nodo-menu/Tray.h>
#include <programs/nodo-menu/WhyWindow.h>

#include <QFileSystemWatcher>
#include <QObject>
#include <QPointer>
#include <QSettings>
#include <QSocketNotifier>
#include <QTimer>
#include <QWidget>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>

namespace nodo::menu {

/// All that nodo-menu has of the world, so that tests can set it.
struct ProgramContext {
  Questions::Serve serve;  ///< called on a thread of its own
  std::string_view restartCommand;
  std::function<Date()> now;
  std::filesystem::path hookLog;
  LoginItem login;
  QSettings& settings;  ///< what nodo-menu itself remembers
};

/// What holds the parts together: replies, news and time come in, the icon with its menu, the
/// window and notices go out. Asks when something has changed, and else only where nobody would
/// tell.
///
/// All on the thread of the interface, which never waits but for the last question at the end.
class Program {
 public:
  explicit Program(ProgramContext context);

  /// Asks for the first time, and shows the icon as soon as there is a place for it.
  void start();

  /// The window "Why?".
  void showWindow();

  Tray& tray() { return tray_; }

  bool isWindowVisible() const { return window_ && window_->isVisible(); }

 private:
  TrayActions trayActions();
  void ask(const Wish& wish);
  void look();
  void takeReplies();
  void take(Reply reply);
  void listenTo(std::shared_ptr<ChangeNews> news);
  void hear();
  void watchHookLog();
  void readHookLog();
  void refresh();
  void timePassed();

  ProgramContext context_;
  MenuModel model_;
  NoticeWatch notices_;
  QObject here_;  // whatever is to come back to this thread goes with it
  QTimer timer_;
  QTimer hookLogTimer_;
  HookLog hookLog_;
  QFileSystemWatcher hookLogWatcher_;
  std::optional<Date> askAt_;
  bool isDaemonMissing_ = false;
  std::shared_ptr<ChangeNews> news_;
  std::unique_ptr<QSocketNotifier> newsNotifier_;
  Tray tray_;
  std::unique_ptr<WhyWindow> window_;  // made when it is first wanted, as it takes memory
  QPointer<QDialog> question_;         // that a person is asked
  QWidget dialogs_;                    // is never shown: those that are open go with it
  Questions questions_;                // ends first: it calls back
};

}  // namespace nodo::menu
