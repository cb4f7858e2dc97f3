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
#include <string_view>
#include <vector>

namespace nodo::nodoctl {

/// Everything that "doctor", "menu" and "watch" say something about.
///
/// A source that fails leaves its facts out and adds a problem, so that there is always something
/// to show.
struct HealthFacts {
  SourcedStatus status;
  std::optional<bool> sleepDisabled;  ///< nodo's lock, as the machine says; absent: not known
  FindingFacts forFindings;
  std::vector<std::string> problems;  ///< the sources that failed, with the reason
};

/// How much is gathered: what a picture shows that is drawn again and again, or all.
enum class HealthDepth { picture, findings };

/// Asks the daemon and looks at this machine.
HealthFacts gatherHealth(const DaemonOptions& options, const ToolContext& context,
                         HealthDepth depth);

/// Looks at this machine again, and takes the daemon's status for what it was but that time passed.
void lookAgain(HealthFacts& facts, const ToolContext& context);

/// What could not be had and why, for standard error.
std::vector<std::string> healthHints(const HealthFacts& facts);

/// What the facts mean for the setup.
SetupMenuSignals setupSignals(const HealthFacts& facts);

/// What to do about the setup line of these signals, e.g. "nodoctl hooks install"; empty where
/// there is none.
std::string setupAdvice(const SetupMenuSignals& signals, std::string_view restartCommand);

}  // namespace nodo::nodoctl
