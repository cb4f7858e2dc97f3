#include <NODOCore/base/Date.h>

#include <cstdint>

#include <gtest/gtest.h>

namespace nodo {
namespace {

TEST(CalendarTest, DaysHaveTheirNames) {
  const struct {
    std::int64_t days;
    CalendarDay day;
  } cases[] = {
      {0, {1970, 1, 1}},         {-1, {1969, 12, 31}},
      {59, {1970, 3, 1}},        {11016, {2000, 2, 29}},
      {-25508, {1900, 3, 1}},    {-25509, {1900, 2, 28}},  // no leap year in the Gregorian calendar
      {-141427, {1582, 10, 15}},                           // the first Gregorian day
      {-141428, {1582, 10, 4}},                            // the last Julian one
      {-171990, {1499, 1, 31}},  {-719164, {1, 1, 1}},
      {-719165, {0, 12, 31}},
  };

  for (const auto& each : cases) {
    EXPECT_EQ(calendarDay(each.days), each.day) << each.days;
    EXPECT_EQ(daysSince1970(each.day), each.days);
  }
}

TEST(CalendarTest, DaysThatAreInNoCalendarHaveNoNumber) {
  for (const CalendarDay& day :
       {CalendarDay{2023, 2, 29}, CalendarDay{1900, 2, 29}, CalendarDay{2024, 2, 30},
        CalendarDay{2024, 4, 31}, CalendarDay{2024, 0, 1}, CalendarDay{2024, 13, 1},
        CalendarDay{2024, 1, 0}, CalendarDay{2024, 1, 32}, CalendarDay{1582, 10, 5},
        CalendarDay{1582, 10, 14}}) {
    EXPECT_FALSE(daysSince1970(day)) << day.year << '-' << day.month << '-' << day.day;
  }
}

}  // namespace
}  // namespace nodo
