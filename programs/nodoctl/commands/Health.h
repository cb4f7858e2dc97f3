#pragma once

#include <NODOCore/diagnostics/Findings.h>
#include <NODOCore/diagnostics/SleepDiagnostics.h>
#include <NODOCore/hooks/AgentHookInstaller.h>
#include <NODOCore/hooks/AgentHookLogInspector.h>
#include <NODOCore/presentation/SetupMenu.h>
#include <programs/nodoctl/StateAccess.h>
#include <programs/nodoctl/Tool.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace nodo::nodoctl {

/// Everything that "doctor", "menu" and "watch" say something about.
///
/// A source that fails leaves its facts out and adds a problem, so that there is always something
/// to show.
struct HealthFacts {
  SourcedStatus status;
  std::optional<Unavailability> unavailable;  ///< why the status is a local one
  SleepDiagnosticsReport diagnostics;         ///< empty when they cannot be had
  std::optional<std::int64_t> lockHolder;     ///< the process of it that holds nodo's own lock
  AgentHookFallbackStatus hookFallback;
  std::optional<AgentHookSetupInspection> hookInspection;
  FindingFacts forFindings;
  std::vector<std::string> problems;  ///< the sources that failed, with the reason
};

/// How much is gathered: what a picture shows that is drawn again and again, or all.
enum class HealthDepth { picture, findings };

/// Asks the daemon and looks at this machine.
HealthFacts gatherHealth(const DaemonOptions& options, const ToolContext& context,
                         HealthDepth depth);

/// What could not be had and why, for standard error.
std::vector<std::string> healthHints(const HealthFacts& facts);

/// What the facts mean for the setup.
SetupMenuSignals setupSignals(const HealthFacts& facts);

}  // namespace nodo::nodoctl
