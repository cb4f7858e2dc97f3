#pragma once

#include <cstdint>
#include <optional>

namespace nodo {

/// A day by its name in the calendar: the Julian one before 15 October 1582, the Gregorian one from
/// then on (the day before is 4 October). Years are counted astronomically: 1 BC is 0.
struct CalendarDay {
  std::int64_t year = 0;
  std::int64_t month = 1;
  std::int64_t day = 1;

  bool operator==(const CalendarDay&) const = default;
};

/// `value` divided by a positive number, rounded towards minus infinity.
constexpr std::int64_t floorDivide(std::int64_t value, std::int64_t divisor) {
  return (value >= 0 ? value : value - divisor + 1) / divisor;
}

/// The day that lies `days` days after 1970-01-01.
CalendarDay calendarDay(std::int64_t days);

/// How many days after 1970-01-01 the day lies; nothing when the calendar has no such day.
std::optional<std::int64_t> daysSince1970(const CalendarDay& day);

}  // namespace nodo
