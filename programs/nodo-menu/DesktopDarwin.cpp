#include <programs/nodo-menu/Desktop.h>

namespace nodo::menu {

LoginItem::Kind loginItemKind() {
  return LoginItem::Kind::launchAgent;
}

std::optional<std::string> whyNothingCanBeShown(const Environment& /*environment*/) {
  return std::nullopt;
}

// The menu bar is always there.
void whenIconsCanBeShown(QObject& /*context*/, const std::function<void(MenuDrawer)>& then) {
  then(MenuDrawer::qt);
}

}  // namespace nodo::menu
