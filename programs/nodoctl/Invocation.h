#pragma once

#include <NODOCore/hooks/Agents.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace nodo::nodoctl {

enum class Command {
  status,
  manual,
  stop,
  repair,
  reconcile,
  diagnostics,
  agents,
  hooksInstall,
  hooksUninstall,
  hooksInspect,
  completion,
  doctor,
  menu,
  watch,
  run
};

/// What one command line asks for.
struct Invocation {
  Command command = Command::status;
  bool json = false;
  bool verbose = false;
  std::optional<std::string> bus;  ///< where the daemon is looked for
  double helperTimeout = 1;        ///< seconds for each request to it
  std::int64_t minutes = 20;
  bool extendOnly = false;
  std::optional<std::string> requester;
  std::optional<std::string> context;
  std::optional<std::string> event;
  bool simulate = false;
  std::vector<AgentHookTarget> hookTargets;  ///< as they were given; none for all
  std::optional<std::string> home;
  std::optional<std::string> nodoctl;
  std::string shell;
  double interval = 0.5;           ///< seconds between two looks of "watch"
  std::vector<std::string> words;  ///< of the command that "run" runs
};

}  // namespace nodo::nodoctl
