#include <NODOCore/base/Calendar.h>

#include <tuple>

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

}  // namespace nodo
