#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace nodo {

/// A length of time in seconds, fractions included.
using Seconds = std::chrono::duration<double>;

/// An instant: seconds since 1970-01-01 00:00 UTC with fractions, on the system's civil clock.
using Date = std::chrono::sys_time<Seconds>;

/// The instant that lies `seconds` after (or, when negative, before) 1970-01-01 00:00 UTC.
constexpr Date dateFromSeconds(double seconds) {
  return Date(Seconds(seconds));
}

/// Seconds since 1970-01-01 00:00 UTC.
constexpr double secondsSince1970(Date date) {
  return date.time_since_epoch().count();
}

/// The system's civil time. The library's one look at the clock: decisions take the time as an
/// argument, and only a missing file or key is dated with this.
Date currentDate();

/// The whole seconds in `length`, rounded towards minus infinity. A length that is not finite or
/// does not fit in 64 bits is a programming fault: differences of real instants always fit.
std::int64_t wholeSeconds(Seconds length);

/// `date` as ISO 8601 text in UTC with whole seconds (rounded towards minus infinity, also before
/// 1970), e.g. "2026-01-31T08:15:00Z". The Gregorian calendar holds at all times, also before there
/// was one; years beyond 9999 take more digits.
std::string iso8601Text(Date date);

/// Reads ISO 8601 text with whole seconds: "2026-01-31T08:15:00" followed by "Z" or an offset such
/// as "+01:00" or "-0930". Any other text, and a day or time that does not exist, gives nothing.
/// Whatever `iso8601Text` writes can be read, up to the year 999999.
std::optional<Date> dateFromISO8601(std::string_view text);

/// A positive number of seconds for people: "45s", "12m 5s", and from an hour upwards "2h 0m"
/// without the seconds.
std::string durationText(std::int64_t seconds);

/// The minutes in a length of time as people write it: "30", "30m", "1h", "1h30m" or "1h30".
/// Nothing for any other text, such as hours with 60 minutes or more behind them.
std::optional<std::int64_t> minutesFromText(std::string_view text);

}  // namespace nodo
