#include <programs/nodo-menu/Desktop.h>

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusServiceWatcher>
#include <QGuiApplication>
#include <QTimer>
#include <chrono>

namespace nodo::menu {
namespace {

// The panel's side of the icons, whichever panel it is.
constexpr char watcherName[] = "org.kde.StatusNotifierWatcher";

// A panel of an X server may know the older way alone. How long a login takes at most.
constexpr std::chrono::seconds patience(20);

}  // namespace

LoginItem::Kind loginItemKind() {
  return LoginItem::Kind::xdgAutostart;
}

std::optional<std::string> whyNothingCanBeShown(const Environment& environment) {
  for (const char* name : {"WAYLAND_DISPLAY", "WAYLAND_SOCKET", "DISPLAY", "QT_QPA_PLATFORM"}) {
    if (nonEmptyValue(environment, name)) {
      return std::nullopt;
    }
  }
  return "there is no desktop to show the icon on, as neither WAYLAND_DISPLAY nor DISPLAY is set; "
         "'nodoctl watch' shows the same in a terminal";
}

void whenIconsCanBeShown(QObject& context, const std::function<void(MenuDrawer)>& then) {
  const QDBusConnection bus = QDBusConnection::sessionBus();
  // Goes with what waits, so that only one of its ends comes true.
  auto* waiting = new QObject(&context);
  const auto finish = [waiting, then](MenuDrawer drawer) {
    waiting->deleteLater();
    waiting->disconnect();
    then(drawer);
  };
  auto* watcher =
      new QDBusServiceWatcher(watcherName, bus, QDBusServiceWatcher::WatchForRegistration, waiting);
  QObject::connect(watcher, &QDBusServiceWatcher::serviceRegistered, waiting,
                   [finish] { finish(MenuDrawer::panel); });
  // Only now, as it may come at any time.
  if (bus.isConnected() && bus.interface()->isServiceRegistered(watcherName)) {
    finish(MenuDrawer::panel);
  } else if (QGuiApplication::platformName() == QLatin1String("xcb")) {
    QTimer::singleShot(patience, waiting, [finish] { finish(MenuDrawer::qt); });
  }
}

}  // namespace nodo::menu
