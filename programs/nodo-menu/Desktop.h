#pragma once

#include <NODOCore/base/Environment.h>
#include <programs/nodo-menu/LoginItem.h>

#include <functional>
#include <optional>
#include <string>

class QObject;

/// What desktops differ in, chosen by file for each system.
namespace nodo::menu {

LoginItem::Kind loginItemKind();

/// Why nothing can be shown from this environment; nothing when it can be tried. To be asked before
/// the first window is made, as Qt ends the process where it cannot.
std::optional<std::string> whyNothingCanBeShown(const Environment& environment);

/// Who draws the icon's menu.
enum class MenuDrawer {
  qt,     ///< or the system, by what Qt tells it
  panel,  ///< another process, which is told of it in the words of com.canonical.dbusmenu
};

/// Calls `then` once there is something to show an icon in, at once if there is. Qt looks for that
/// only once, when the first icon is made. Never after `context` is gone.
void whenIconsCanBeShown(QObject& context, const std::function<void(MenuDrawer)>& then);

}  // namespace nodo::menu
