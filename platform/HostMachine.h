#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/diagnostics/SleepDiagnosticsReport.h>
#include <NODOCore/sensing/ProcessListing.h>
#include <NODOCore/sensing/SystemSnapshotProviding.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace nodo {

/// A report on what affects sleep and, where the system had nothing to say, what to tell the
/// person.
struct SleepDiagnosticsReading {
  SleepDiagnosticsReport report;
  std::optional<std::string> hint;
};

/// The senses of a machine, as programs use them.
struct HostMachine {
  std::shared_ptr<const ProcessListing> processListing;
  std::shared_ptr<const SystemSnapshotProviding> snapshotProvider;
  /// Throws std::system_error when a tool that must be there cannot be started.
  std::function<SleepDiagnosticsReading(Date now)> sleepDiagnostics;
};

/// The machine that this process runs on. Makes nothing but objects: the machine is looked at when
/// they are asked.
HostMachine hostMachine();

}  // namespace nodo
