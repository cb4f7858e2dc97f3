#include <NODOCore/base/Date.h>
#include <NODOCore/base/LocalTime.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <system_error>

#include <fmt/format.h>

namespace nodo {
namespace {

constexpr std::int64_t secondsPerDay = 86400;

// How far the local clock is ahead of UTC at an instant; nothing where the system cannot tell.
std::optional<std::int64_t> offsetAt(std::int64_t instant) {
  const auto time = static_cast<std::time_t>(instant);
  std::tm local{};
  ::tzset();  // localtime_r need not look at TZ by itself
  if (::localtime_r(&time, &local) == nullptr) {
    return std::nullopt;
  }
  return local.tm_gmtoff;
}

// The instant at which the local clock shows `shown`, counted as if the clock were UTC's. mktime
// would answer for skipped times too, and could not choose between two instants where the zone's
// standard time changed.
std::optional<std::int64_t> instantShowing(std::int64_t shown) {
  std::optional<std::int64_t> latest;
  // No clock is a day off UTC, so these two see the offsets before and after any change near by.
  for (const std::int64_t nearby : {shown - secondsPerDay, shown + secondsPerDay}) {
    const auto offset = offsetAt(nearby);
    if (offset && offsetAt(shown - *offset) == offset) {
      latest = std::max(latest.value_or(shown - *offset), shown - *offset);
    }
  }
  return latest;
}

}  // namespace

std::string localTimeText(Date date) {
  const std::int64_t instant = wholeSeconds(date.time_since_epoch());
  const auto offset = offsetAt(instant);
  if (!offset) {
    throw std::system_error(EOVERFLOW, std::generic_category(), "Unable to tell the local time");
  }
  std::string text = iso8601Text(dateFromSeconds(static_cast<double>(instant + *offset)));
  text.replace(text.find('T'), 1, " ");
  text.pop_back();
  return text;
}

std::string clockText(Date date, Date now) {
  constexpr std::string_view dayForm = "2026-01-31 ";
  constexpr std::size_t minutesEnd = 16;
  const std::string shown = localTimeText(date).substr(0, minutesEnd);
  const bool isToday = localTimeText(now).starts_with(shown.substr(0, dayForm.size()));
  return isToday ? shown.substr(dayForm.size()) : shown;
}

std::optional<Date> dateFromLocalTime(std::string_view text) {
  constexpr std::size_t separator = 10;
  if (text.size() != localTimeLength || text[separator] != ' ') {
    return std::nullopt;
  }
  const auto shown =
      dateFromISO8601(fmt::format("{}T{}Z", text.substr(0, separator), text.substr(separator + 1)));
  const auto instant =
      shown ? instantShowing(wholeSeconds(shown->time_since_epoch())) : std::nullopt;
  if (!instant) {
    return std::nullopt;
  }
  return dateFromSeconds(static_cast<double>(*instant));
}

}  // namespace nodo
