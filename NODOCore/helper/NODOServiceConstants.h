#pragma once

#include <string_view>
#include <vector>

namespace nodo {

/// The names under which the daemon is found and its callers are trusted.
struct NODOServiceConstants {
  NODOServiceConstants() = delete;

  static constexpr std::string_view appBundleIdentifier = "com.quintavel.nodo";
  static constexpr std::string_view ctlBundleIdentifier = "com.quintavel.nodo.nodoctl";
  /// The Apple team that signs all three programs.
  static constexpr std::string_view developmentTeamID = "Q7K2M9X4TZ";
  /// The daemon's launchd label.
  static constexpr std::string_view helperLabel = "com.quintavel.nodo.helper";
  /// The service's name: on macOS its Mach service, on Linux its bus name.
  static constexpr std::string_view helperMachServiceName = helperLabel;
  /// The file name of the daemon's launchd property list.
  static constexpr std::string_view helperPlistName = "com.quintavel.nodo.helper.plist";

  /// Whose requests the daemon serves on macOS: the app, then the tool. Built on first use; safe
  /// from any thread.
  static const std::vector<std::string_view>& trustedXPCClientBundleIdentifiers();
};

}  // namespace nodo
