#include <NODOCore/base/LocalTime.h>
#include <NODOCore/hooks/AgentHookLogInspector.h>
#include <NODOCore/hooks/HookFallbackSearch.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include <fuzz/Fuzzing.h>

namespace nodo::fuzzing {
namespace {

const Date start = dateFromSeconds(1769842800);  // 2026-01-31 08:00:00 in the zone set below

// A log in pieces of one size, each in memory of its own, so that reading past one is noticed.
class LogInPieces : public HookLogText {
 public:
  LogInPieces(std::string_view text, std::size_t pieceSize) : text_(text), pieceSize_(pieceSize) {}

  std::uint64_t size() const override { return text_.size(); }

  std::string_view pieceFrom(std::uint64_t begin, std::uint64_t end) override {
    return piece(begin, std::min<std::uint64_t>(end, begin + pieceSize_));
  }

  std::string_view pieceBefore(std::uint64_t end) override {
    return piece(end - std::min<std::uint64_t>(end, pieceSize_), end);
  }

 private:
  std::string_view piece(std::uint64_t begin, std::uint64_t end) {
    require(begin <= end && end <= text_.size(), "a piece lies in the log");
    const std::string_view part = text_.substr(begin, end - begin);
    piece_ = std::vector<char>(part.begin(), part.end());
    return {piece_.data(), piece_.size()};
  }

  std::string_view text_;
  std::size_t pieceSize_;
  std::vector<char> piece_;
};

void checkStatus(const AgentHookFallbackStatus& status, Date now) {
  const auto left = HookFallbackRecoveryPolicy::remainingMinutes(status, now);
  require(left.has_value() == status.isActive, "minutes are left as long as it is active");
  require(left.value_or(1) >= 1, "at least one minute is left");
  require(status.fallbackSeconds >= 0, "no fallback runs backwards");
  if (!status.lastStartedAt) {
    require(status == AgentHookFallbackStatus{.logPath = status.logPath}, "no start, no fallback");
  }
  require(AgentHookLogInspector::doctorWarning(status, false).has_value() == status.isActive,
          "the doctor warns as long as it is active");
}

void checkResolution(std::string log, const AgentHookFallbackStatus& status, Date now) {
  const Date resolvedAt = std::max(now, status.lastStartedAt.value_or(now));
  log += "\n" + localTimeText(resolvedAt) + " fallback resolved reason=x\n";
  require(!AgentHookLogInspector::recentFallbackStatus(log, "", now).isActive,
          "a resolution ends every fallback before it");
}

void checkStamp(std::string_view text) {
  const std::string_view stamp = text.substr(0, localTimeLength);
  if (const auto date = dateFromLocalTime(stamp)) {
    require(localTimeText(*date) == stamp, "a stamp that can be read is written alike");
  }
}

}  // namespace
}  // namespace nodo::fuzzing

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  return ::setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
}

// A number for the size of the pieces, one for the time, and the log.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using nodo::AgentHookLogInspector;
  std::string_view log = nodo::fuzzing::textOf(data, size);
  const std::size_t pieceSize = nodo::HookLogText::smallestPiece + nodo::fuzzing::takeNumber(log);
  const nodo::Date now = nodo::fuzzing::start +
                         nodo::Seconds(8.0 * static_cast<double>(nodo::fuzzing::takeNumber(log)));
  const auto status = AgentHookLogInspector::recentFallbackStatus(log, "/log", now);
  nodo::fuzzing::checkStatus(status, now);
  nodo::fuzzing::LogInPieces pieces(log, pieceSize);
  nodo::fuzzing::require(nodo::fallbackStatus(pieces, "/log", now) == status,
                         "the size of the pieces changes nothing");
  nodo::fuzzing::checkResolution(std::string(log), status, now);
  nodo::fuzzing::checkStamp(log);
  return 0;
}
