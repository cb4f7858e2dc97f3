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

bool hasTheForm(std::string_view text) {
  constexpr std::string_view form = "0000-00-00 00:00:00";
  static_assert(form.size() == localTimeLength);
  return std::equal(
      text.begin(), text.end(), form.begin(), form.end(), [](char character, char expected) {
        return expected == '0' ? character >= '0' && character <= '9' : character == expected;
      });
}

std::int64_t number(std::string_view digits) {
  std::int64_t value = 0;
  for (const char digit : digits) {
    value = value * 10 + (digit - '0');
  }
  return value;
}

}  // namespace

std::string localTimeText(Date date) {
  const std::int64_t instant = wholeSeconds(date.time_since_epoch());
  const auto offset = offsetAt(instant);
  if (!offset) {
    throw std::system_error(EOVERFLOW, std::generic_category(), "Unable to tell the local time");
  }
  const std::int64_t shown = instant + *offset;
  const std::int64_t secondOfDay = (shown % secondsPerDay + secondsPerDay) % secondsPerDay;
  const CalendarDay day = calendarDay((shown - secondOfDay) / secondsPerDay);
  return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}", day.year, day.month, day.day,
                     secondOfDay / 3600, secondOfDay / 60 % 60, secondOfDay % 60);
}

std::optional<Date> dateFromLocalTime(std::string_view text) {
  if (!hasTheForm(text)) {
    return std::nullopt;
  }
  const auto days = daysSince1970({.year = number(text.substr(0, 4)),
                                   .month = number(text.substr(5, 2)),
                                   .day = number(text.substr(8, 2))});
  const std::int64_t hour = number(text.substr(11, 2));
  const std::int64_t minute = number(text.substr(14, 2));
  const std::int64_t second = number(text.substr(17, 2));
  if (!days || hour > 23 || minute > 59 || second > 59) {
    return std::nullopt;
  }
  const auto instant = instantShowing(*days * secondsPerDay + hour * 3600 + minute * 60 + second);
  if (!instant) {
    return std::nullopt;
  }
  return dateFromSeconds(static_cast<double>(*instant));
}

}  // namespace nodo
