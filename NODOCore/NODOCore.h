#pragma once

/// All of NODOCore's public interface.

#include <NODOCore/base/Date.h>
#include <NODOCore/base/Environment.h>
#include <NODOCore/base/Errors.h>
#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/base/JSONValue.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/base/TextEnum.h>
#include <NODOCore/control/NODOController.h>
#include <NODOCore/control/PowerDecision.h>
#include <NODOCore/control/Reports.h>
#include <NODOCore/daemon/Daemon.h>
#include <NODOCore/daemon/DaemonLoop.h>
#include <NODOCore/daemon/LockKeeper.h>
#include <NODOCore/daemon/SleepLock.h>
#include <NODOCore/diagnostics/DoctorReport.h>
#include <NODOCore/diagnostics/SleepDiagnostics.h>
#include <NODOCore/helper/HelperConnection.h>
#include <NODOCore/helper/NODOHelperXPCClient.h>
#include <NODOCore/helper/NODOHelperXPCProtocol.h>
#include <NODOCore/helper/NODOXPCClientAuthentication.h>
#include <NODOCore/hooks/AgentHookInstaller.h>
#include <NODOCore/hooks/AgentHookLogInspector.h>
#include <NODOCore/hooks/AgentHookSetupPresentation.h>
#include <NODOCore/hooks/Agents.h>
#include <NODOCore/hooks/HookScript.h>
#include <NODOCore/power/CommandRunning.h>
#include <NODOCore/power/PowerManaging.h>
#include <NODOCore/presentation/MenuReport.h>
#include <NODOCore/presentation/SetupMenu.h>
#include <NODOCore/sensing/AgentDetector.h>
#include <NODOCore/sensing/ProcessListing.h>
#include <NODOCore/sensing/SystemSnapshot.h>
#include <NODOCore/state/NODOState.h>
#include <NODOCore/state/StateStore.h>
