#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/base/Environment.h>
#include <NODOCore/helper/NODOHelperXPCProtocol.h>
#include <NODOCore/power/PowerManaging.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace nodo {

/// By which means the daemon switches the sleep lock.
enum class PowerChoice { automatic, pmset, logind, simulated };

/// The machine's sleep lock, as the daemon has it.
struct SleepLock {
  std::unique_ptr<PowerManaging> manager;
  /// Whether the lock stands now, as the machine itself says; absent when it cannot tell. Must not
  /// throw. Of no use beyond the manager's life.
  std::function<std::optional<bool>()> isHeld;
  /// Whether the system frees the lock when this process ends, so that a lock of an earlier process
  /// is gone.
  bool diesWithProcess = false;
  /// Whether nothing is really switched.
  bool isSimulated = false;
};

/// The lock by these means; `automatic` takes what the machine has, else a simulation. Throws
/// std::runtime_error for means that this system does not have, with what it has instead.
SleepLock makeSleepLock(PowerChoice choice);

/// A lock that switches nothing and never stands, for machines and tests without one.
SleepLock simulatedSleepLock();

/// What the daemon's loop calls, all of it on the loop's own thread and one after another.
struct DaemonHandlers {
  /// Power supply, lid or route changed, or the machine woke up; `what` names it for the log.
  std::function<void(const std::string& what)> machineChanged;
  std::function<void()> timerFired;
  /// SIGTERM or SIGINT; the loop ends when the handler returns, and serves no request any more.
  std::function<void()> terminate;
};

/// The daemon's one thread: its timer, its signals, the machine's news and its clients' requests.
///
/// Sleeps in the kernel without a single wake-up unless something of that happens. Not thread-safe.
class DaemonLoop {
 public:
  virtual ~DaemonLoop() = default;

  /// Offers `service` under the helper's name. From then on requests of callers that may make them
  /// reach it inside `run`, one after another; refusals are logged here. Throws std::runtime_error
  /// when the name is taken or cannot be had.
  virtual void serve(NODOHelperXPCProtocol& service) = 0;

  /// Sets the one timer to fire that long from now, time asleep included; absent for never.
  virtual void setTimer(std::optional<Seconds> fromNow) = 0;

  /// Tells the service manager, where there is one, whether the lock is held. To be called after
  /// every pass: while the lock is held this proves that the daemon lives, which else is restarted.
  virtual void setLockHeld(bool held) = 0;

  /// Serves until `terminate` was handled. Throws std::runtime_error when it cannot go on, e.g.
  /// because the bus is gone.
  virtual void run(const DaemonHandlers& handlers) = 0;
};

/// The loop, connected to `bus`: "system", "session", a bus address, or nothing for the system bus
/// when it can be reached and else the session bus; of no meaning on macOS. Throws
/// std::runtime_error.
std::unique_ptr<DaemonLoop> makeDaemonLoop(const std::optional<std::string>& bus);

/// Where the daemon keeps its state unless told otherwise: NODO_STATE_DIR, else the system folder,
/// else what this kind of system has for it (on Linux STATE_DIRECTORY of the service manager, else
/// /var/lib/nodo, and on a session bus ".nodo/daemon" under HOME). `bus` as above. Throws
/// std::runtime_error when it needs HOME and there is none.
std::filesystem::path daemonStateFolder(const Environment& environment,
                                        const std::optional<std::string>& bus);

}  // namespace nodo
