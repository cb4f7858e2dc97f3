#pragma once

#include <NODOCore/hooks/AgentHookFallbackStatus.h>

#include <cstdint>
#include <optional>

namespace nodo {

/// What is left to do when the real sleep lock takes over from the hook script's fallback.
struct HookFallbackRecoveryPolicy {
  /// The minutes that an active fallback still has to run, rounded up; nothing for any other.
  static std::optional<std::int64_t> remainingMinutes(const AgentHookFallbackStatus& status,
                                                      Date now);
};

}  // namespace nodo
