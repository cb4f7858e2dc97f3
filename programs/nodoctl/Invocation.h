#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace nodo::nodoctl {

enum class Command { status, manual, stop, repair, reconcile, diagnostics, agents, completion };

/// What one command line asks for.
struct Invocation {
  Command command = Command::status;
  bool json = false;
  std::int64_t minutes = 0;
  bool extendOnly = false;
  std::optional<std::string> requester;
  std::optional<std::string> context;
  std::optional<std::string> event;
  bool simulate = false;
  std::string shell;
};

}  // namespace nodo::nodoctl
