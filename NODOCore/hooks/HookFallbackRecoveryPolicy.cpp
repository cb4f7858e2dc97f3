#include <NODOCore/hooks/HookFallbackRecoveryPolicy.h>

#include <cmath>

namespace nodo {

std::optional<std::int64_t> HookFallbackRecoveryPolicy::remainingMinutes(
    const AgentHookFallbackStatus& status, Date now) {
  if (!status.isActive || !status.lastStartedAt) {
    return std::nullopt;
  }
  const Date end = *status.lastStartedAt + Seconds(static_cast<double>(status.fallbackSeconds));
  if (end <= now) {
    return std::nullopt;
  }
  return wholeSeconds(Seconds(std::ceil((end - now).count() / 60)));
}

}  // namespace nodo
