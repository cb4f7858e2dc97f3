#include <NODOCore/base/Date.h>
#include <NODOCore/base/Errors.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <tuple>

#include <fmt/format.h>

namespace nodo {

namespace {

// Both calendars repeat after a cycle of whole days. Years are taken to begin on 1 March, so that
// the leap day is the last of its year; day 0 of the first cycle is 1 March of the year 0.
struct CalendarRules {
  std::int64_t yearsPerCycle;
  std::int64_t daysPerCycle;
  std::int64_t dayOf1970;  // 1970-01-01 in days since that day 0
  bool skipsCenturies;     // no leap day in years that 100 divides and 400 does not
};

constexpr CalendarRules gregorian{400, 146097, 719468, true};
constexpr CalendarRules julian{4, 1461, 719470, false};

constexpr std::int64_t firstGregorianDay = -141427;  // 1582-10-15, in days since 1970-01-01

// Days in the whole years of a cycle before its year number `year`.
std::int64_t daysBeforeYear(std::int64_t year, const CalendarRules& rules) {
  return year * 365 + year / 4 - (rules.skipsCenturies ? year / 100 : 0);
}

CalendarDay fromDays(std::int64_t days, const CalendarRules& rules) {
  const std::int64_t sinceStart = days + rules.dayOf1970;
  const std::int64_t cycle = floorDivide(sinceStart, rules.daysPerCycle);
  const std::int64_t dayOfCycle = sinceStart - cycle * rules.daysPerCycle;
  std::int64_t yearOfCycle = dayOfCycle / 365;  // too large by one at most, close to a year's end
  while (daysBeforeYear(yearOfCycle, rules) > dayOfCycle || yearOfCycle == rules.yearsPerCycle) {
    --yearOfCycle;
  }
  const std::int64_t dayOfYear = dayOfCycle - daysBeforeYear(yearOfCycle, rules);
  // From March on five months have 153 days, in the same pattern of 31 and 30 again and again.
  const std::int64_t monthFromMarch = (5 * dayOfYear + 2) / 153;
  const bool nextYear = monthFromMarch >= 10;  // January and February
  return {.year = cycle * rules.yearsPerCycle + yearOfCycle + (nextYear ? 1 : 0),
          .month = nextYear ? monthFromMarch - 9 : monthFromMarch + 3,
          .day = dayOfYear - (153 * monthFromMarch + 2) / 5 + 1};
}

std::int64_t toDays(const CalendarDay& day, const CalendarRules& rules) {
  const bool beforeMarch = day.month <= 2;
  const std::int64_t year = day.year - (beforeMarch ? 1 : 0);
  const std::int64_t monthFromMarch = beforeMarch ? day.month + 9 : day.month - 3;
  const std::int64_t cycle = floorDivide(year, rules.yearsPerCycle);
  return cycle * rules.daysPerCycle + daysBeforeYear(year - cycle * rules.yearsPerCycle, rules) +
         (153 * monthFromMarch + 2) / 5 + day.day - 1 - rules.dayOf1970;
}

}  // namespace

CalendarDay calendarDay(std::int64_t days) {
  return fromDays(days, days < firstGregorianDay ? julian : gregorian);
}

std::optional<std::int64_t> daysSince1970(const CalendarDay& day) {
  const bool isJulian = std::tie(day.year, day.month, day.day) <
                        std::make_tuple(std::int64_t{1582}, std::int64_t{10}, std::int64_t{15});
  const std::int64_t days = toDays(day, isJulian ? julian : gregorian);
  // A day that does not exist (30 February, 10 October 1582) comes back under another name.
  return calendarDay(days) == day ? std::optional(days) : std::nullopt;
}

namespace {

constexpr std::int64_t secondsPerDay = 86400;
// Every second of these years has a double of its own.
constexpr std::size_t largestYearDigits = 6;
constexpr std::int64_t largestYear = 999'999;

// Reads the fixed-width fields of a date. A stream parser would also take signs, blanks and single
// digits, and would look at the process's locale.
class FixedWidthReader {
 public:
  explicit FixedWidthReader(std::string_view text) : rest_(text) {}

  bool digits(std::size_t count, int& value) {
    if (rest_.size() < count) {
      return false;
    }
    value = 0;
    for (const char digit : rest_.substr(0, count)) {
      if (digit < '0' || digit > '9') {
        return false;
      }
      value = value * 10 + (digit - '0');
    }
    rest_.remove_prefix(count);
    return true;
  }

  // A year is the one field that may be longer, when it begins with another digit than zero.
  bool year(int& value) {
    const bool negative = literal('-');
    const auto count = std::min(rest_.find_first_not_of("0123456789"), rest_.size());
    if (count < 4 || count > largestYearDigits || (count > 4 && rest_.front() == '0') ||
        !digits(count, value)) {
      return false;
    }
    value = negative ? -value : value;
    return !negative || value != 0;
  }

  bool literal(char expected) {
    if (rest_.empty() || rest_.front() != expected) {
      return false;
    }
    rest_.remove_prefix(1);
    return true;
  }

  bool atEnd() const { return rest_.empty(); }

 private:
  std::string_view rest_;
};

std::optional<std::chrono::minutes> readOffset(FixedWidthReader& reader) {
  if (reader.literal('Z')) {
    return std::chrono::minutes(0);
  }
  const bool west = reader.literal('-');
  int hours = 0;
  int minutes = 0;
  if ((!west && !reader.literal('+')) || !reader.digits(2, hours)) {
    return std::nullopt;
  }
  reader.literal(':');  // "+01:00" and "+0100" are both in use
  if (!reader.digits(2, minutes) || hours > 23 || minutes > 59) {
    return std::nullopt;
  }
  const std::chrono::minutes offset(hours * 60 + minutes);
  return west ? -offset : offset;
}

}  // namespace

Date currentDate() {
  return std::chrono::time_point_cast<Seconds>(std::chrono::system_clock::now());
}

std::int64_t wholeSeconds(Seconds length) {
  const double floored = std::floor(length.count());
  // 2^63 itself is representable as a double and is the first value too large.
  constexpr double limit = 9223372036854775808.0;
  if (!std::isfinite(floored) || floored < -limit || floored >= limit) {
    programmingFault("a length of time is not finite or does not fit in 64 bits");
  }
  return static_cast<std::int64_t>(floored);
}

std::string iso8601Text(Date date) {
  // The platform counts from 2001, where doubles are spaced differently; rounding down there gives
  // the same second for a date within a hair of the next one.
  constexpr std::int64_t secondsTo2001 = 978307200;
  const Seconds since2001 = date.time_since_epoch() - Seconds(secondsTo2001);
  const std::int64_t total = wholeSeconds(since2001) + secondsTo2001;
  const std::int64_t dayInUTC = floorDivide(total, secondsPerDay);
  const std::int64_t secondOfDay = total - dayInUTC * secondsPerDay;
  const CalendarDay day = calendarDay(dayInUTC);
  return fmt::format("{}{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z", day.year < 0 ? "-" : "",
                     std::abs(day.year), day.month, day.day, secondOfDay / 3600,
                     secondOfDay / 60 % 60, secondOfDay % 60);
}

std::optional<Date> dateFromISO8601(std::string_view text) {
  FixedWidthReader reader(text);
  int year = 0;
  int month = 0;
  int day = 0;
  int hour = 0;
  int minute = 0;
  int second = 0;
  const bool wellFormed = reader.year(year) && reader.literal('-') && reader.digits(2, month) &&
                          reader.literal('-') && reader.digits(2, day) && reader.literal('T') &&
                          reader.digits(2, hour) && reader.literal(':') &&
                          reader.digits(2, minute) && reader.literal(':') &&
                          reader.digits(2, second);
  if (!wellFormed) {
    return std::nullopt;
  }
  const auto offset = readOffset(reader);
  const auto days = daysSince1970({.year = year, .month = month, .day = day});
  if (!offset || !reader.atEnd() || !days || hour > 23 || minute > 59 || second > 59) {
    return std::nullopt;
  }
  const auto instant = std::chrono::seconds(*days * secondsPerDay) + std::chrono::hours(hour) +
                       std::chrono::minutes(minute) + std::chrono::seconds(second) - *offset;
  const std::int64_t dayInUTC = floorDivide(instant.count(), secondsPerDay);
  if (std::abs(calendarDay(dayInUTC).year) > largestYear) {
    return std::nullopt;  // the offset led out of the years that can be read
  }
  return Date(std::chrono::duration_cast<Seconds>(instant));
}

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
