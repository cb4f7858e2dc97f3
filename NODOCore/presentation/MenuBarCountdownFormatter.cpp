#include <NODOCore/presentation/MenuBarCountdownFormatter.h>

#include <algorithm>

#include <fmt/format.h>

namespace nodo {

std::optional<std::string> MenuBarCountdownFormatter::text(
    const std::optional<StatusReport>& report, Date at) {
  const auto remaining = report ? report->state.manualRemainingSeconds(at) : std::nullopt;
  if (remaining.value_or(0) < 1) {
    return std::nullopt;
  }
  return compactDuration(*remaining);
}

std::string MenuBarCountdownFormatter::compactDuration(std::int64_t seconds) {
  constexpr std::int64_t minute = 60;
  constexpr std::int64_t hour = 60 * minute;
  if (seconds < minute) {
    return fmt::format("{}s", std::max<std::int64_t>(seconds, 0));
  }
  if (seconds < hour) {
    return fmt::format("{}m", seconds / minute);
  }
  const std::int64_t minutes = seconds / minute % 60;
  return minutes == 0 ? fmt::format("{}h", seconds / hour)
                      : fmt::format("{}h{}m", seconds / hour, minutes);
}

}  // namespace nodo
