#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/base/Files.h>
#include <NODOCore/daemon/SleepLock.h>
#include <NODOCore/diagnostics/SleepDiagnostics.h>
#include <platform/linux/bus/BusConnection.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace nodo {

/// What logind is called on the system bus (org.freedesktop.login1(5)).
inline constexpr BusObject logindManager{.service = "org.freedesktop.login1",
                                         .path = "/org/freedesktop/login1",
                                         .interface = "org.freedesktop.login1.Manager"};
inline constexpr BusObject logindProperties{.service = logindManager.service,
                                            .path = logindManager.path,
                                            .interface = "org.freedesktop.DBus.Properties"};

/// One inhibitor in logind's list (org.freedesktop.login1(5)). Its texts are foreign.
struct Inhibitor {
  std::string what;  ///< what it holds up, separated by colons: "sleep:idle"
  std::string who;   ///< who says so
  std::string why;
  std::string mode;  ///< "block", or "delay": for a few seconds only
  std::uint32_t uid = 0;
  std::uint32_t pid = 0;

  bool operator==(const Inhibitor&) const = default;
};

/// Whether `kind` is among `what`, kinds separated by colons.
bool holdsUp(std::string_view what, std::string_view kind);

/// systemd-logind, which decides about sleep on Linux, over the system bus.
///
/// Connects at the first question and again after a failure; for each inhibitor anew. Every
/// question takes at most the limits. Not thread-safe. All questions throw BusRefusal when logind
/// says no, BusError when it cannot be asked.
class Logind {
 public:
  explicit Logind(BusLimits limits) : limits_(limits) {}

  /// Whether the lid switch is closed; false on a machine without one.
  bool isLidClosed();

  /// Everything that is being held up with mode "block", separated by colons.
  std::string blockInhibited();

  /// Whether a block also holds for the user whose it is: since version 257, which tells since then
  /// of blocks that do not, too.
  bool blocksHoldForTheirUser();

  /// All inhibitors, in logind's order.
  std::vector<Inhibitor> inhibitors();

  /// Takes an inhibitor with the texts of `wanted`; it ends when the last copy of the descriptor is
  /// closed.
  FileDescriptor inhibit(const Inhibitor& wanted);

  /// Suspends the machine, without asking a person for a password.
  void suspend();

  /// Asks the desktops of all sessions to lock their screens.
  void lockSessions();

 private:
  BusMessage askProperty(const std::string& name);
  BusMessage send(const BusMessage& call);
  const BusConnection& connection();

  BusLimits limits_;
  std::optional<BusConnection> connection_;
};

/// nodo's lock, as logind is asked for it. "idle" among what it holds up is what keeps the display
/// on, and on some desktops unlocked; "sleep" alone holds up the sleep of a machine that idles.
Inhibitor sleepLockInhibitor(const LockTerms& terms);

/// Whether `inhibitor` says that it is nodo's and blocks both sleep and the lid switch, whatever
/// its terms. Anybody can take one that does, so this alone decides nothing: see whose it is.
bool looksLikeSleepLock(const Inhibitor& inhibitor);

/// The process that holds nodo's lock, if one does: of root's, or of `ownUser`'s, whose daemon may
/// be on a session bus.
std::optional<std::int64_t> sleepLockHolder(const std::vector<Inhibitor>& inhibitors,
                                            std::uint32_t ownUser);

/// What logind's list says about sleep, in the form of a SleepDiagnosticsReport. Pure.
///
/// Each inhibitor becomes a blocker: its type is what it holds up ("sleep:idle"), its name why. The
/// scope is systemSleep when "sleep" or "idle" is among it and the mode is "block"; a "delay" holds
/// nothing up for longer than a few seconds, so it is listed as other. The flags are logind's kinds
/// of inhibition and whether somebody blocks them. The sleep lock is on while sleepLockHolder()
/// finds somebody for `ownUser`.
SleepDiagnosticsReport logindDiagnostics(const std::vector<Inhibitor>& inhibitors,
                                         const std::string& blockInhibited, std::uint32_t ownUser,
                                         Date generatedAt);

}  // namespace nodo
