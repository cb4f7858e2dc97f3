#pragma once

#include <NODOCore/hooks/AgentHookInstaller.h>

#include <string>
#include <vector>

/// What the hook commands say to people: lines with a line feed at the end of each. Texts that came
/// from outside are shown with their control characters escaped. Pure.
namespace nodo::nodoctl {

/// What was done, a line for each report.
std::string reportText(const std::vector<AgentHookInstallReport>& reports);

/// What is installed, a line for each piece, and how to bring it up to date if it is not.
std::string reportText(const AgentHookSetupInspection& inspection);

/// What the person has to do before the agents run the hooks that the reports tell of.
std::string stepsAfterInstalling(const std::vector<AgentHookInstallReport>& reports);

/// What stays behind on purpose.
std::string stepsAfterUninstalling(const std::vector<AgentHookInstallReport>& reports);

}  // namespace nodo::nodoctl
