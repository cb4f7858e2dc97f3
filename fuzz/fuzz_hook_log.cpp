#include <NODOCore/base/LocalTime.h>
#include <NODOCore/hooks/AgentHookLogInspector.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include <fuzz/Fuzzing.h>

namespace nodo::fuzzing {
namespace {

const Date start = dateFromSeconds(1769842800);  // 2026-01-31 08:00:00 in the zone set below

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

AgentHookFallbackStatus statusOf(const std::string& log, Date now) {
  return AgentHookLogInspector::recentFallbackStatus(log, "/log", now);
}

// What lines behind the log say that is known without reading it.
void checkFurtherLines(std::string log, const AgentHookFallbackStatus& status, Date now) {
  log += "\n" + localTimeText(now) + " nodo extend throttled seconds=5 requester=x\n";
  require(statusOf(log, now) == status, "a line of another kind changes nothing");

  const std::string stamp = localTimeText(std::max(now, status.lastStartedAt.value_or(now)));
  const std::string resolved = log + stamp + " fallback resolved reason=x\n";
  require(!statusOf(resolved, now).isActive, "a resolution ends every fallback before it");

  const std::string latest = "9999-12-31 23:59:59";
  if (log.find(latest) != std::string::npos) {
    return;  // only such a line could end what starts then
  }
  const Date later = dateFromLocalTime(latest).value();
  log += latest + " fallback caffeinate started seconds=77\n";
  const AgentHookFallbackStatus expected{
      .isActive = true, .logPath = "/log", .lastStartedAt = later, .fallbackSeconds = 77};
  require(statusOf(log, later) == expected, "the last start counts");
  require(!statusOf(log, later + Seconds(77)).isActive, "a fallback runs out");
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

// A number for the time, and the log.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view text = nodo::fuzzing::textOf(data, size);
  const nodo::Date now = nodo::fuzzing::start +
                         nodo::Seconds(8.0 * static_cast<double>(nodo::fuzzing::takeNumber(text)));
  const std::string log(text);
  const auto status = nodo::fuzzing::statusOf(log, now);
  nodo::fuzzing::checkStatus(status, now);
  nodo::fuzzing::checkFurtherLines(log, status, now);
  nodo::fuzzing::checkStamp(text);
  return 0;
}
