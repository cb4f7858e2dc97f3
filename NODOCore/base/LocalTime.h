#pragma once

#include <NODOCore/base/Date.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

/// Times of the wall clock, as "2026-01-31 08:15:00".
///
/// The time zone is the process's: that of the variable TZ, else the system's. The locale plays no
/// part. Not safe while another thread changes the environment.
namespace nodo {

/// The number of characters in the text of a local time whose year has four digits.
constexpr std::size_t localTimeLength = 19;

/// `date` as local time with whole seconds, rounded towards minus infinity. Throws
/// std::system_error for a date whose year the system cannot count.
std::string localTimeText(Date date);

/// `date` as people read a clock on the day of `now`: "15:40", and "2026-02-01 00:10" on another
/// day. Throws as above.
std::string clockText(Date date, Date now);

/// Reads exactly such a text as `localTimeText` gives. Nothing for any other, for a day or time
/// that does not exist, and for a time that the clock skips when it is put forward. A time that it
/// shows twice, when it is put back, stands for the later instant.
std::optional<Date> dateFromLocalTime(std::string_view text);

/// A time of day as a clock on the wall shows it.
struct ClockTime {
  int hour = 0;    ///< 0 to 23
  int minute = 0;  ///< 0 to 59

  bool operator==(const ClockTime&) const = default;
};

/// Reads "17:05", and "9:05". Nothing for any other text.
std::optional<ClockTime> clockTimeFromText(std::string_view text);

/// The next instant after `now` at which the local clock comes to `time`. Of a time that it shows
/// twice, as it is put back, that is the first that lies ahead; of one that it skips, as it is put
/// forward, the moment of that. Throws as `localTimeText`.
Date nextTimeOfDay(ClockTime time, Date now);

}  // namespace nodo
