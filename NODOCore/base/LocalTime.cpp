#include <NODOCore/base/Date.h>
#include <NODOCore/base/LocalTime.h>
#include <NODOCore/base/Text.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <system_error>
#include <utility>

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

std::int64_t requiredOffsetAt(std::int64_t instant) {
  const auto offset = offsetAt(instant);
  if (!offset) {
    throw std::system_error(EOVERFLOW, std::generic_category(), "Unable to tell the local time");
  }
  return *offset;
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
  const std::int64_t offset = requiredOffsetAt(instant);
  std::string text = iso8601Text(dateFromSeconds(static_cast<double>(instant + offset)));
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

std::optional<ClockTime> clockTimeFromText(std::string_view text) {
  const auto colon = text.find(':');
  const bool hasForm = (colon == 1 || colon == 2) && text.size() == colon + 3 &&
                       text.find_first_not_of("0123456789:") == std::string_view::npos;
  if (!hasForm) {
    return std::nullopt;
  }
  const auto hour = integerFromText<int>(text.substr(0, colon));
  const auto minute = integerFromText<int>(text.substr(colon + 1));
  if (!hour || !minute || *hour > 23 || *minute > 59) {
    return std::nullopt;
  }
  return ClockTime{.hour = *hour, .minute = *minute};
}

Date nextTimeOfDay(ClockTime time, Date now) {
  constexpr std::int64_t minute = 60;
  const std::int64_t wanted = (time.hour * 60 + time.minute) * minute;
  // How long ago the clock showed that time, as if it had never been set since; and on which day.
  const auto since = [wanted](std::int64_t instant) {
    const std::int64_t passed = instant + requiredOffsetAt(instant) - wanted;
    const std::int64_t day =
        std::chrono::floor<std::chrono::days>(std::chrono::seconds(passed)).count();
    return std::pair(day, passed - day * secondsPerDay);
  };
  // Minute by minute, as the clock may be set in any of them.
  std::int64_t instant = wholeSeconds(now.time_since_epoch()) / minute * minute;
  std::int64_t day = since(instant).first;
  for (;;) {
    instant += minute;
    const auto [today, passed] = since(instant);
    if (today > day || passed == 0) {
      return dateFromSeconds(static_cast<double>(instant));
    }
    day = today;
  }
}

}  // namespace nodo
