#include <NODOCore/base/LocalTime.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/hooks/AgentHookLogInspector.h>
#include <NODOCore/hooks/HookFallbackSearch.h>

#include <algorithm>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>

namespace nodo {
namespace {

using Inspector = AgentHookLogInspector;

constexpr std::string_view secondsKey = "seconds=";

// The longest code point: so many bytes around a text decide whether it stands between characters.
constexpr std::size_t neighbour = 4;

// A line that is not empty, without the newline character behind it.
struct Line {
  std::uint64_t begin = 0;
  std::uint64_t end = 0;
};

// Behind the last newline character in `piece`; nothing when it holds none. An ASCII byte and a
// leading byte never stand inside another character, so no decoding is needed.
std::optional<std::size_t> behindLastNewline(std::string_view piece) {
  for (std::size_t at = piece.size(); at-- > 0;) {
    const auto byte = static_cast<unsigned char>(piece[at]);
    if (byte >= 0x0A && byte <= 0x0D) {
      return at + 1;
    }
    if (byte == 0xC2 && piece.substr(at).starts_with("\u0085")) {
      return at + 2;
    }
    if (byte == 0xE2 &&
        (piece.substr(at).starts_with("\u2028") || piece.substr(at).starts_with("\u2029"))) {
      return at + 3;
    }
  }
  return std::nullopt;
}

std::size_t newlineLengthAtEnd(std::string_view piece) {
  for (std::size_t length = 1; length <= std::min<std::size_t>(piece.size(), 3); ++length) {
    if (behindLastNewline(piece.substr(piece.size() - length)) == length) {
      return length;
    }
  }
  return 0;
}

// The line before `end`, empty ones passed over; nothing at the log's begin.
std::optional<Line> lineBefore(HookLogText& log, std::uint64_t end) {
  for (std::size_t length = 1; end > 0 && length > 0; end -= length) {
    length = newlineLengthAtEnd(log.pieceBefore(end));
  }
  if (end == 0) {
    return std::nullopt;
  }
  for (std::uint64_t searched = end;;) {
    const std::string_view piece = log.pieceBefore(searched);
    const std::uint64_t pieceBegin = searched - piece.size();
    if (const auto begin = behindLastNewline(piece)) {
      return Line{pieceBegin + *begin, end};
    }
    if (pieceBegin == 0) {
      return Line{0, end};
    }
    searched = pieceBegin + 2;  // a newline character of three bytes may begin before this piece
  }
}

// Where `text` first stands in the line between character boundaries.
std::optional<std::uint64_t> find(HookLogText& log, Line line, std::string_view text) {
  std::uint64_t pieceBegin = line.begin;
  for (;;) {
    const std::string_view piece = log.pieceFrom(pieceBegin, line.end);
    const bool isLast = pieceBegin + piece.size() == line.end;
    for (auto at = piece.find(text); at != std::string_view::npos; at = piece.find(text, at + 1)) {
      // What lies so close to a piece's border that a neighbour could be missing is found in the
      // piece before or after it, which overlap by as much.
      const bool lacksLeft = pieceBegin > line.begin && at < neighbour;
      const bool lacksRight = !isLast && at + text.size() + neighbour > piece.size();
      if (lacksLeft || lacksRight) {
        continue;
      }
      // None of the texts can occur a second time in so little more than itself.
      const std::size_t from = at - std::min(at, neighbour);
      if (contains(piece.substr(from, at - from + text.size() + neighbour), text)) {
        return pieceBegin + at;
      }
    }
    if (isLast) {
      return std::nullopt;
    }
    pieceBegin += piece.size() - (text.size() + 2 * neighbour);
  }
}

std::optional<Date> stampOf(HookLogText& log, Line line) {
  // One code point more than the stamp shows whether its last digit is a character by itself.
  const auto end = std::min<std::uint64_t>(line.end, line.begin + localTimeLength + neighbour);
  return dateFromLocalTime(firstCharacters(log.pieceFrom(line.begin, end), localTimeLength));
}

// The digits behind "seconds="; nothing where there are none, or more than a number can hold.
std::optional<std::int64_t> secondsOf(HookLogText& log, Line line) {
  const auto key = find(log, line, secondsKey);
  if (!key) {
    return std::nullopt;
  }
  std::optional<std::int64_t> value;
  for (std::uint64_t at = *key + secondsKey.size(); at < line.end;) {
    const std::string_view piece = log.pieceFrom(at, line.end);
    for (const char character : piece) {
      if (character < '0' || character > '9') {
        return value;
      }
      constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
      const int digit = character - '0';
      if (value.value_or(0) > (largest - digit) / 10) {
        return std::nullopt;
      }
      value = value.value_or(0) * 10 + digit;
    }
    at += piece.size();
  }
  return value;
}

// Takes the lines of a log from the last to the first, until they cannot change the answer any
// more.
class Search {
 public:
  Search(HookLogText& log, Date now) : log_(log), now_(now) {}

  void take(Line line) {
    const bool starts = !startedAt_ && find(log_, line, Inspector::fallbackStartedMarker);
    const bool isActive = !activeAt_ && find(log_, line, Inspector::activeMarker);
    const bool resolves = !resolvedAt_ && find(log_, line, Inspector::fallbackResolvedMarker);
    if (!starts && !isActive && !resolves) {
      return;
    }
    const auto stamp = stampOf(log_, line);
    if (!stamp) {
      return;
    }
    if (starts) {
      startedAt_ = stamp;
      seconds_ = secondsOf(log_, line).value_or(Inspector::defaultFallbackSeconds);
    }
    activeAt_ = isActive ? stamp : activeAt_;
    resolvedAt_ = resolves ? stamp : resolvedAt_;
  }

  bool isDecided() const {
    return startedAt_ && (!isRunning() || isResolved() || (activeAt_ && resolvedAt_));
  }

  AgentHookFallbackStatus status(std::string logPath) const {
    return {.isActive = startedAt_ && isRunning() && !isResolved(),
            .logPath = std::move(logPath),
            .lastStartedAt = startedAt_,
            .fallbackSeconds = seconds_};
  }

 private:
  bool isRunning() const { return now_ < *startedAt_ + Seconds(static_cast<double>(seconds_)); }

  // An absent instant compares less than any.
  bool isResolved() const { return std::max(activeAt_, resolvedAt_) >= startedAt_; }

  HookLogText& log_;
  Date now_;
  std::optional<Date> startedAt_;
  std::optional<Date> activeAt_;
  std::optional<Date> resolvedAt_;
  std::int64_t seconds_ = Inspector::defaultFallbackSeconds;
};

}  // namespace

AgentHookFallbackStatus fallbackStatus(HookLogText& log, std::string logPath, Date now) {
  Search search(log, now);
  std::uint64_t end = log.size();
  while (!search.isDecided()) {
    const auto line = lineBefore(log, end);
    if (!line) {
      break;
    }
    search.take(*line);
    end = line->begin;
  }
  return search.status(std::move(logPath));
}

}  // namespace nodo
