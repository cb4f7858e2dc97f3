#pragma once

#include <NODOCore/base/Environment.h>
#include <NODOCore/base/TextEnum.h>
#include <NODOCore/daemon/DaemonLoop.h>
#include <NODOCore/daemon/SleepLock.h>
#include <platform/HostMachine.h>

#include <array>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace nodo {

/// By which means the daemon switches the sleep lock.
enum class PowerChoice { automatic, pmset, logind, simulated };

template <>
struct EnumTexts<PowerChoice> {
  static constexpr std::array cases{
      EnumText{PowerChoice::automatic, "auto"}, EnumText{PowerChoice::pmset, "pmset"},
      EnumText{PowerChoice::logind, "logind"}, EnumText{PowerChoice::simulated, "simulated"}};
};

/// The senses that the daemon decides by, none of which hangs: those of this system. On Linux
/// `pmset` means the tools of macOS, so that stand-ins for them make a machine together.
HostMachine daemonMachine(PowerChoice choice);

/// The lock by these means; `automatic` takes what the machine has, else a simulation. Throws
/// std::runtime_error for means that this system does not have, with what it has instead (on Linux
/// pmset where that tool is there), and for those that do not answer: they may only be slow to
/// start.
SleepLock makeSleepLock(PowerChoice choice);

/// The loop, connected to `bus`: "system", "session", a bus address, or nothing for the system bus
/// when it can be reached and else the session bus; of no meaning on macOS. `log` takes what the
/// loop has to say on Linux. Throws std::runtime_error.
std::unique_ptr<DaemonLoop> makeDaemonLoop(const std::optional<std::string>& bus,
                                           const DaemonLog& log);

/// Where the system has the daemon's settings file.
std::filesystem::path settingsFile();

/// Where the daemon keeps its state unless told otherwise: NODO_STATE_DIR, else the system folder,
/// else what this kind of system has for it (on Linux STATE_DIRECTORY of the service manager, else
/// /var/lib/nodo, and on a session bus ".nodo/daemon" under HOME). `bus` as above. Throws
/// std::runtime_error when it needs HOME and there is none.
std::filesystem::path daemonStateFolder(const Environment& environment,
                                        const std::optional<std::string>& bus);

}  // namespace nodo
