#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/diagnostics/SleepDiagnostics.h>
#include <NODOCore/sensing/ProcessListing.h>
#include <NODOCore/sensing/SystemSnapshot.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace nodo {

/// A report on what affects sleep, and what is known beside it.
struct SleepDiagnosticsReading {
  SleepDiagnosticsReport report;
  /// The process that holds nodo's own lock, where locks are among the blockers: on Linux.
  std::optional<std::int64_t> lockHolder;
  std::optional<std::string> hint;  ///< what to tell a person when the system had nothing to say
};

/// The senses of a machine, as programs use them. Some share a connection: they are asked by one
/// thread at a time.
struct HostMachine {
  std::shared_ptr<const ProcessListing> processListing;
  std::shared_ptr<const SystemSnapshotProviding> snapshotProvider;
  /// Throws std::system_error when a tool that must be there cannot be started.
  std::function<SleepDiagnosticsReading(Date now)> sleepDiagnostics;
  /// How long a process of this user has run, asleep or awake; nothing for another user's, for one
  /// that is gone, and where the machine cannot tell: on macOS.
  std::function<std::optional<Seconds>(std::int32_t pid)> ageOfOwnProcess = [](std::int32_t) {
    return std::nullopt;
  };
};

/// The machine that this process runs on. Tools that it is asked by have a time limit. A service
/// that has not answered within `patience` is left alone for a second, so that a hung one costs
/// that only once where several senses are asked in turn. Makes nothing but objects: the machine is
/// looked at when they are asked.
HostMachine hostMachine(std::chrono::milliseconds patience = std::chrono::milliseconds(500));

}  // namespace nodo
