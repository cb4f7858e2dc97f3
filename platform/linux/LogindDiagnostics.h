#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/diagnostics/SleepDiagnostics.h>
#include <platform/linux/Logind.h>

#include <cstdint>
#include <string>
#include <vector>

namespace nodo {

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
