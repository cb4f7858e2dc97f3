#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/control/Reports.h>
#include <NODOCore/diagnostics/SleepDiagnostics.h>
#include <NODOCore/sensing/AgentDetector.h>
#include <programs/nodoctl/CommandLine.h>
#include <programs/nodoctl/Tool.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What nodoctl's commands do. Each answers with what it has to say, or throws with a message for
/// people.
namespace nodo::nodoctl {

Answer perform(const StatusCommand& command, const ToolContext& context);
Answer perform(const HistoryCommand& command, const ToolContext& context);
Answer perform(const ManualCommand& command, const ToolContext& context);
Answer perform(const StopCommand& command, const ToolContext& context);
Answer perform(const PauseCommand& command, const ToolContext& context);
Answer perform(const ResumeCommand& command, const ToolContext& context);
Answer perform(const RepairCommand& command, const ToolContext& context);
Answer perform(const ReconcileCommand& command, const ToolContext& context);
Answer perform(const DiagnosticsCommand& command, const ToolContext& context);
Answer perform(const AgentsCommand& command, const ToolContext& context);

/// The health check. A verdict that warns is a failure; a source that fails is only a hint.
Answer perform(const DoctorCommand& command, const ToolContext& context);

/// What fails for one agent keeps no other from its turn; the command has failed then. Throw when
/// nothing can be said at all.
Answer perform(const HooksInstallCommand& command, const ToolContext& context);
Answer perform(const HooksUninstallCommand& command, const ToolContext& context);
Answer perform(const HooksInspectCommand& command, const ToolContext& context);

Answer perform(const MenuCommand& command, const ToolContext& context);

/// Writes as it goes, until a signal, a "q" typed on the terminal, or the end of its reader ends
/// it. These, and an interrupt, are the usual ends and a success.
Answer perform(const WatchCommand& command, const ToolContext& context);

/// The timer is kept extended while the command, or the process that is named, runs; then it is
/// what it was before, unless somebody else has asked meanwhile. The answer is the command's exit
/// status. A signal that ends the waiting for a process ends this one.
Answer perform(const RunCommand& command, const ToolContext& context);

Answer perform(const CompletionCommand& command, const ToolContext& context);
Answer perform(const CompleteCommand& command, const ToolContext& context);

/// Reports as text for people: lines with a line feed at the end of each. Texts that came from
/// outside are shown with their control characters escaped. Pure.
std::string reportText(const StatusReport& report);
std::string reportText(const DaemonRunReport& report);
std::string reportText(const SleepDiagnosticsReport& report);
std::string reportText(const std::vector<AgentProcess>& agents);

/// A word of decisions and audits in a person's language; any other as it is, escaped.
std::string explained(std::string_view word);

/// That the user's hooks are paused until `end`; nothing when there is none.
std::vector<std::string> pauseHints(std::optional<Date> end, Date now);

/// Of a status only the machine's power, network and lid, as text.
std::string machineText(const StatusReport& report);

/// A report as the document that a program reads.
template <class Report>
std::string jsonDocument(const Report& report) {
  return encodeJSON(report, JSONLayout::pretty) + "\n";
}

/// The same for whoever reads it.
template <class Report>
std::string shown(const Report& report, bool asJSON) {
  return asJSON ? jsonDocument(report) : reportText(report);
}

}  // namespace nodo::nodoctl
