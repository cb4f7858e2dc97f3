#pragma once

#include <NODOCore/control/Reports.h>
#include <NODOCore/diagnostics/SleepDiagnostics.h>
#include <NODOCore/sensing/AgentDetector.h>

#include <string>
#include <vector>

/// The reports as text for people: lines with a line feed at the end of each. Texts that came from
/// outside are shown with their control characters escaped. Pure.
namespace nodo::nodoctl {

std::string reportText(const StatusReport& report);
/// Of that only the machine's power, network and lid.
std::string machineText(const StatusReport& report);
std::string reportText(const DaemonRunReport& report);
std::string reportText(const SleepDiagnosticsReport& report);
std::string reportText(const std::vector<AgentProcess>& agents);

}  // namespace nodo::nodoctl
