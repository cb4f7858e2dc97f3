#pragma once

#include <NODOCore/base/Date.h>

#include <cstdint>
#include <optional>
#include <string>

namespace nodo {

class JSONReader;
class JSONValue;

/// What the hook log says about the hook script's fallback, which keeps the computer awake with its
/// lid open only.
struct AgentHookFallbackStatus {
  bool isActive = false;  ///< a fallback started and has neither run out nor been resolved
  std::string logPath;    ///< the log that was read
  std::optional<Date> lastStartedAt;
  std::int64_t fallbackSeconds = 600;  ///< how long the last one runs; 600 when there was none

  bool operator==(const AgentHookFallbackStatus&) const = default;
};

JSONValue encode(const AgentHookFallbackStatus& status);
void decode(const JSONReader& from, AgentHookFallbackStatus& status);

}  // namespace nodo
