#pragma once

#include <NODOCore/presentation/SetupMenuSignals.h>

#include <optional>
#include <string>

namespace nodo {

/// What the menu says about the setup. Pure.
struct SetupMenuPresentation {
  /// The one thing to say, if any: problems of the daemon come before a pending lock, and that
  /// before problems of the hooks. Suppressed reminders do not hide it.
  static std::optional<std::string> setupLine(const SetupMenuSignals& signals);

  /// Whether the menu's setup section opens expanded.
  static bool prefersExpandedSetup(const SetupMenuSignals& signals);

  /// The title over an incomplete setup, once the person closed the assistant (`wizardDismissed`).
  static std::optional<std::string> setupIncompleteStatusTitle(const SetupMenuSignals& signals,
                                                               bool wizardDismissed);
};

}  // namespace nodo
