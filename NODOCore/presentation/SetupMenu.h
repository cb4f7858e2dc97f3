#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace nodo {

/// What a program found out about its setup. The facts are kept as they come; nothing checks that
/// they are consistent.
struct SetupMenuSignals {
  bool helperIsReady = false;        ///< the daemon answers and is current
  bool helperNeedsRepair = false;    ///< it is installed but broken
  bool helperNeedsUpdate = false;    ///< it works, but there is a newer one
  bool helperNeedsApproval = false;  ///< it waits for the person's approval
  bool helperNeedsInstall = false;   ///< there is none
  bool hooksAreReady = false;        ///< every agent's hooks are installed and current
  std::optional<std::int64_t> hooksPartialInstalled;  ///< targets with hooks, when only some have
  std::optional<std::int64_t> hooksPartialTotal;      ///< out of how many
  bool hooksFailed = false;                           ///< the last installation failed
  bool hooksNeedInstall = false;
  bool hooksNeedUpdate = false;      ///< installed hooks are outdated
  bool remindersSuppressed = false;  ///< the person asked not to be reminded
  bool powerLockPending = false;     ///< the lock was asked for but is not yet in force

  /// Whether the daemon does its work. One that merely has an update waiting does.
  bool helperIsOperational() const;

  bool isSetupComplete() const;

  bool isSetupIncomplete() const { return !isSetupComplete(); }

  bool operator==(const SetupMenuSignals&) const = default;
};

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
