#pragma once

#include <NODOCore/base/JSONValue.h>

#include <optional>
#include <string>

namespace nodo {

class JSONReader;

/// What installing or uninstalling did for one target, or for the shared script.
struct AgentHookInstallReport {
  std::string target;  ///< the target's text, or "hook-script"
  std::string path;    ///< the file that this is about
  bool changed = false;
  std::string message;
  std::optional<std::string> error;

  bool succeeded() const { return !error; }

  bool operator==(const AgentHookInstallReport&) const = default;
};

JSONValue encode(const AgentHookInstallReport& report);
void decode(const JSONReader& from, AgentHookInstallReport& report);

}  // namespace nodo
