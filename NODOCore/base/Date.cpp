#include <NODOCore/base/Date.h>
#include <NODOCore/base/Errors.h>
#include <NODOCore/base/Text.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>

#include <fmt/format.h>

namespace nodo {

namespace {

// Every second of these years has a double of its own.
constexpr std::size_t largestYearDigits = 6;
constexpr std::int64_t largestYear = 999'999;

// The calendar repeats after these. std::chrono's years end with 32767, so it is asked about the
// years of one cycle only.
constexpr std::int64_t yearsInCycle = 400;
constexpr std::chrono::seconds cycle = std::chrono::days(146097);

constexpr std::int64_t flooredQuotient(std::int64_t value, std::int64_t divisor) {
  return value / divisor - (value % divisor < 0 ? 1 : 0);
}

// A day and a time of it in UTC.
struct CivilTime {
  std::int64_t year;
  std::chrono::year_month_day dayOfCycle;
  std::chrono::hh_mm_ss<std::chrono::seconds> time;
};

CivilTime civilTime(std::chrono::seconds since1970) {
  const std::int64_t cycles = flooredQuotient(since1970.count(), cycle.count());
  const std::chrono::sys_seconds instant((since1970 % cycle + cycle) % cycle);
  const auto midnight = std::chrono::floor<std::chrono::days>(instant);
  const std::chrono::year_month_day day(midnight);
  return {static_cast<int>(day.year()) + cycles * yearsInCycle, day,
          std::chrono::hh_mm_ss(instant - midnight)};
}

// When the day begins, since 1970; nothing when there is no such day.
std::optional<std::chrono::seconds> startOfDay(int year, int month, int day) {
  const std::int64_t cycles = flooredQuotient(year, yearsInCycle);
  const std::chrono::year_month_day dayOfCycle(
      std::chrono::year(static_cast<int>(year - cycles * yearsInCycle)),
      std::chrono::month(static_cast<unsigned>(month)),
      std::chrono::day(static_cast<unsigned>(day)));
  if (!dayOfCycle.ok()) {
    return std::nullopt;
  }
  return std::chrono::sys_days(dayOfCycle).time_since_epoch() + cycles * cycle;
}

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
  const auto [year, day, time] =
      civilTime(std::chrono::seconds(wholeSeconds(since2001) + secondsTo2001));
  // Digit by digit: a state holds more than a thousand dates, and a formatting library took most of
  // the time that writing it takes.
  std::array<char, 16> rest{'-', '0', '0', '-', '0', '0', 'T', '0',
                            '0', ':', '0', '0', ':', '0', '0', 'Z'};
  const auto put = [&rest](std::size_t place, unsigned value) {
    rest[place] = static_cast<char>('0' + value / 10);
    rest[place + 1] = static_cast<char>('0' + value % 10);
  };
  put(1, static_cast<unsigned>(day.month()));
  put(4, static_cast<unsigned>(day.day()));
  put(7, static_cast<unsigned>(time.hours().count()));
  put(10, static_cast<unsigned>(time.minutes().count()));
  put(13, static_cast<unsigned>(time.seconds().count()));
  const std::string digits = std::to_string(std::abs(year));
  std::string text(year < 0 ? "-" : "");
  text.append(digits.size() < 4 ? 4 - digits.size() : 0, '0');
  text += digits;
  return text.append(rest.begin(), rest.end());
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
  const auto midnight = startOfDay(year, month, day);
  if (!offset || !reader.atEnd() || !midnight || hour > 23 || minute > 59 || second > 59) {
    return std::nullopt;
  }
  const auto instant = *midnight + std::chrono::hours(hour) + std::chrono::minutes(minute) +
                       std::chrono::seconds(second) - *offset;
  if (offset->count() != 0 && std::abs(civilTime(instant).year) > largestYear) {
    return std::nullopt;  // the offset led out of the years that can be read
  }
  return Date(instant);
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

std::optional<std::int64_t> minutesFromText(std::string_view text) {
  // So few that their sum fits.
  const auto number = [](std::string_view digits) -> std::optional<std::int64_t> {
    const bool beginsWithDigit = !digits.empty() && digits[0] >= '0' && digits[0] <= '9';
    return beginsWithDigit ? integerFromText<std::int32_t>(digits) : std::nullopt;
  };
  constexpr std::int64_t minutesPerHour = 60;
  const auto hoursEnd = text.find('h');
  const bool hasHours = hoursEnd != std::string_view::npos;
  const auto hours = hasHours ? number(text.substr(0, hoursEnd)) : 0;
  text.remove_prefix(hasHours ? hoursEnd + 1 : 0);
  if (hasHours && text.empty()) {
    text = "0";
  }
  text.remove_suffix(text.ends_with('m') ? 1 : 0);
  const auto minutes = number(text);
  if (!hours || !minutes || (hasHours && *minutes >= minutesPerHour)) {
    return std::nullopt;
  }
  return *hours * minutesPerHour + *minutes;
}

}  // namespace nodo
