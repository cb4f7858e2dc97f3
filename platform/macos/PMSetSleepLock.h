#pragma once

#include <NODOCore/power/CommandRunning.h>
#include <platform/DaemonMachine.h>

#include <memory>

namespace nodo {

/// The machine-wide lock that `/usr/bin/pmset` switches, which outlives this process.
SleepLock pmsetSleepLock(const std::shared_ptr<const CommandRunning>& runner);

}  // namespace nodo
