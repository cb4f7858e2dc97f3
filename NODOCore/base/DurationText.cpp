#include <NODOCore/base/DurationText.h>

#include <fmt/format.h>

namespace nodo {

std::string durationText(std::int64_t seconds) {
  constexpr std::int64_t minute = 60;
  constexpr std::int64_t hour = 60 * minute;
  if (seconds < minute) {
    return fmt::format("{}s", seconds);
  }
  if (seconds < hour) {
    return fmt::format("{}m {}s", seconds / minute, seconds % minute);
  }
  return fmt::format("{}h {}m", seconds / hour, seconds / minute % 60);
}

}  // namespace nodo
