#include <programs/nodo-menu/Tray.h>
#include <programs/nodoctl/commands/MenuDisplay.h>

#include <QString>
#include <cstddef>
#include <utility>

// A library's resources are there once they are asked for, and that not in a namespace.
static void haveIcons() {
  Q_INIT_RESOURCE(icons);
}

namespace nodo::menu {
namespace {

// A menu does not break lines by itself.
constexpr int columns = 64;

std::vector<std::string> linesOf(const MenuView& view) {
  std::vector<nodoctl::MenuLine> lines;
  if (view.failure) {
    lines.push_back({.text = "Failed: " + *view.failure});
  }
  lines.push_back({.text = view.headline});
  for (const std::string& notice : view.notices) {
    lines.push_back({.text = notice});
  }
  std::vector<std::string> texts;
  for (const nodoctl::MenuLine& line : nodoctl::wrapped(lines, columns)) {
    texts.push_back(line.text);
  }
  return texts;
}

}  // namespace

QIcon iconFor(MenuBarIconState state) {
  haveIcons();
  const QString name = QStringLiteral("nodo-menu-%1-symbolic")
                           .arg(QString::fromStdString(std::string(rawValue(state))).toLower());
  QIcon icon = QIcon::fromTheme(name, QIcon(QStringLiteral(":/icons/%1.svg").arg(name)));
  icon.setIsMask(true);  // macOS draws it in the colour of its menu bar
  return icon;
}

QString menuLabel(const std::string& text, MenuDrawer drawer) {
  QString label = QString::fromStdString(text);
  if (drawer == MenuDrawer::qt) {
    return label.replace(QLatin1Char('&'), QLatin1String("&&"));
  }
  // To a panel "_" is the mark. Qt makes one of the first "&" and hands all else on as it is.
  label.replace(QLatin1Char('_'), QLatin1String("__"));
  return label.contains(QLatin1Char('&')) ? QLatin1Char('&') + label : label;
}

Tray::Tray(TrayActions actions) : actions_(std::move(actions)) {
  addTop();
  addSetup();
  addBottom();
  QObject::connect(&menu_, &QMenu::aboutToShow, &menu_, [this] { actions_.menuOpens(); });
}

void Tray::addTop() {
  linesEnd_ = menu_.addSeparator();
  keepAwakeMenu_.setTitle(QStringLiteral("&Keep awake for"));
  for (const MenuEntry& entry : keepAwakeEntries()) {
    QObject::connect(keepAwakeMenu_.addAction(QString::fromStdString(entry.title)),
                     &QAction::triggered, &menu_, [this, entry] { wish(entry); });
  }
  keepAwakeMenu_.addSeparator();
  QObject::connect(keepAwakeMenu_.addAction(QStringLiteral("Until a &time...")),
                   &QAction::triggered, &menu_, [this] { actions_.askForTime(); });
  menu_.addMenu(&keepAwakeMenu_);
  stop_ = menu_.addAction(QString());
  QObject::connect(stop_, &QAction::triggered, &menu_, [this] { wish(view_.stop); });
  pause_ = menu_.addAction(QString());
  QObject::connect(pause_, &QAction::triggered, &menu_, [this] { wish(view_.pause); });
  menu_.addSeparator();
}

void Tray::addSetup() {
  setupLine_ = menu_.addAction(QString());
  setupLine_->setEnabled(false);
  menu_.addMenu(&setupMenu_);
  setupEnd_ = menu_.addSeparator();
  setupAction_ = new QAction(&menu_);
  // A menu forgets what it was to do for an action that is taken out of it.
  QObject::connect(setupAction_, &QAction::triggered, setupAction_, [this] {
    if (view_.setup) {
      wish(view_.setup->action);
    }
  });
  reminders_ = new QAction(&menu_);
  QObject::connect(reminders_, &QAction::triggered, reminders_,
                   [this] { actions_.putOffReminders(view_.setup && view_.setup->isExpanded); });
}

void Tray::addBottom() {
  QObject::connect(menu_.addAction(QStringLiteral("&Why?")), &QAction::triggered, &menu_,
                   [this] { actions_.why(); });
  login_ = menu_.addAction(QStringLiteral("Start at &login"));
  login_->setCheckable(true);
  QObject::connect(login_, &QAction::triggered, &menu_,
                   [this](bool on) { actions_.startAtLogin(on); });
  QObject::connect(menu_.addAction(QStringLiteral("&Quit")), &QAction::triggered, &menu_,
                   [this] { actions_.quit(); });
}

void Tray::showIcon(MenuDrawer drawer) {
  drawer_ = drawer;
  icon_ = std::make_unique<QSystemTrayIcon>(iconFor(view_.icon));
  icon_->setToolTip(QString::fromStdString(iconText(view_)));
  icon_->setContextMenu(&menu_);
  QObject::connect(icon_.get(), &QSystemTrayIcon::activated, &menu_,
                   [this](QSystemTrayIcon::ActivationReason reason) {
                     // On macOS a click opens the menu, and tells of it as well.
                     if (reason == QSystemTrayIcon::Trigger && !menu_.isVisible()) {
                       actions_.why();
                     }
                   });
  icon_->show();
  if (waiting_) {
    notify(*std::exchange(waiting_, std::nullopt));
  }
}

void Tray::show(const MenuView& view, bool startsAtLogin) {
  if (icon_ && view.icon != view_.icon) {
    icon_->setIcon(iconFor(view.icon));
  }
  if (icon_ && iconText(view) != iconText(view_)) {
    icon_->setToolTip(QString::fromStdString(iconText(view)));
  }
  view_ = view;
  showLines(view);
  stop_->setVisible(view.stop.has_value());
  stop_->setText(view.stop ? label(view.stop->title) : QString());
  pause_->setVisible(view.pause.has_value());
  pause_->setText(view.pause ? label(view.pause->title) : QString());
  showSetup(view.setup);
  login_->setChecked(startsAtLogin);
}

void Tray::showLines(const MenuView& view) {
  const std::vector<std::string> texts = linesOf(view);
  while (lines_.size() < texts.size()) {
    auto* line = new QAction(&menu_);
    line->setEnabled(false);
    menu_.insertAction(linesEnd_, line);
    lines_.push_back(line);
  }
  for (std::size_t i = 0; i < lines_.size(); ++i) {
    lines_[i]->setVisible(i < texts.size());
    lines_[i]->setText(i < texts.size() ? label(texts[i]) : QString());
  }
}

void Tray::showSetup(const std::optional<SetupView>& setup) {
  const bool isExpanded = setup && setup->isExpanded;
  setupLine_->setVisible(isExpanded);
  setupMenu_.menuAction()->setVisible(setup && !isExpanded);
  setupEnd_->setVisible(setup.has_value());
  setupLine_->setText(setup ? label(setup->line) : QString());
  setupMenu_.setTitle(setupLine_->text());
  setupAction_->setVisible(setup && setup->action);
  setupAction_->setEnabled(setup && setup->action && setup->action->wish);
  setupAction_->setText(setup && setup->action ? label(setup->action->title) : QString());
  reminders_->setVisible(setup.has_value());
  reminders_->setText(isExpanded ? QStringLiteral("Remind me in a week")
                                 : QStringLiteral("Remind me again"));
  QMenu& place = isExpanded ? menu_ : setupMenu_;
  for (QAction* action : {setupAction_, reminders_}) {
    if (!place.actions().contains(action)) {
      (isExpanded ? setupMenu_ : menu_).removeAction(action);
      place.insertAction(isExpanded ? setupEnd_ : nullptr, action);
    }
  }
}

void Tray::wish(const std::optional<MenuEntry>& entry) const {
  if (entry && entry->wish) {
    actions_.wish(*entry->wish);
  }
}

void Tray::notify(const Notice& notice) {
  if (!icon_) {
    waiting_ = notice;
    return;
  }
  icon_->showMessage(QString::fromStdString(notice.title), QString::fromStdString(notice.text),
                     QSystemTrayIcon::Warning, 0);
}

}  // namespace nodo::menu
