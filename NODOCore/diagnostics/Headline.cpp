#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/base/LocalTime.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/diagnostics/Headline.h>

#include <cmath>

#include <fmt/format.h>

namespace nodo {

NODO_JSON_RECORD(Headline, fields, headline) {
  fields.required("kind", headline.kind);
  fields.required("text", headline.text);
}

namespace {

bool isTimerRunning(const StatusReport& report) {
  return report.manualRemainingSeconds.value_or(0) > 0 && report.state.manualUntil;
}

// "until 15:40 (20 min left)" where a timer runs.
std::string untilText(const StatusReport& report) {
  const Date end = *report.state.manualUntil;
  return fmt::format("until {} ({} left)", clockText(end, report.generatedAt),
                     timeLeftText(end - report.generatedAt));
}

// Why a safety rule allows sleep, with its figures.
std::string blockText(const std::string& block, const HeadlineFacts& facts) {
  const SystemSnapshot& machine = facts.report.snapshot;
  if (block == reason::batteryBelowThreshold && machine.batteryPercent) {
    return fmt::format("battery at {} % (limit {} %)", *machine.batteryPercent,
                       facts.limits.minimumBatteryPercent);
  }
  const auto missingSince = facts.report.state.noRouteUnavailableSince;
  if (block == reason::networkUnavailable && missingSince) {
    return fmt::format("no network since {} (limit {} min)",
                       clockText(*missingSince, facts.report.generatedAt),
                       facts.limits.noRouteGraceSeconds / 60);
  }
  return block;
}

std::string blocksText(const HeadlineFacts& facts) {
  std::string text;
  for (const std::string& block : facts.report.decision.safetyBlocks) {
    text += (text.empty() ? "" : ", ") + blockText(block, facts);
  }
  return text;
}

// Why no timer runs, where that is worth a word.
std::string idleText(const NODOState& state) {
  const std::string why = state.lastStopReason.value_or("");
  return why == reason::manualExpired ? "the timer has run out"
         : why == reason::userStop    ? "the timer was stopped"
                                      : "no timer runs";
}

Headline withoutDaemon(const HeadlineFacts& facts) {
  if (facts.lockIsOn == true) {
    return {HeadlineKind::lockWithoutWord,
            fmt::format("Kept awake by a lock of nodo's, but the daemon cannot be asked: {}.",
                        *facts.daemonFailure)};
  }
  return {HeadlineKind::daemonMissing,
          fmt::format("NOT kept awake by this: the daemon cannot be asked: {}.",
                      *facts.daemonFailure)};
}

Headline withDaemon(const HeadlineFacts& facts) {
  const StatusReport& report = facts.report;
  const bool isOwned = report.state.ownsSleepDisable;
  if (report.decision.shouldPreventSleep) {
    const std::string until = isTimerRunning(report) ? " " + untilText(report) : "";
    if (isOwned && facts.lockIsOn.value_or(true)) {
      return {HeadlineKind::keptAwake, fmt::format("Kept awake{}.", until)};
    }
    return {HeadlineKind::lockMissing,
            fmt::format("NOT kept awake by nodo, although the timer runs{}: {}.", until,
                        isOwned                  ? "somebody has switched the sleep lock off"
                        : facts.lockIsOn == true ? "the sleep lock that is on is not nodo's"
                                                 : "the sleep lock could not be taken")};
  }
  if (isOwned || facts.lockIsOn == true) {
    return {HeadlineKind::lockLeft,
            fmt::format("Still kept awake: the sleep lock is on, although {}.",
                        isTimerRunning(report) ? "sleep is to be allowed, " + blocksText(facts)
                                               : "nothing asks for it")};
  }
  if (isTimerRunning(report)) {
    return {HeadlineKind::sleepAllowed,
            fmt::format("The timer runs {}, but sleep is allowed: {}.", untilText(report),
                        blocksText(facts))};
  }
  return {HeadlineKind::off, fmt::format("Not kept awake: {}.", idleText(report.state))};
}

}  // namespace

Headline headline(const HeadlineFacts& facts) {
  Headline found = facts.daemonFailure ? withoutDaemon(facts) : withDaemon(facts);
  found.text = escapedForDisplay(found.text);
  return found;
}

std::string timeLeftText(Seconds left) {
  constexpr std::int64_t minutesPerHour = 60;
  const auto minutes = static_cast<std::int64_t>(std::ceil(left.count() / 60));
  const std::int64_t hours = minutes / minutesPerHour;
  if (hours == 0) {
    return fmt::format("{} min", minutes);
  }
  return minutes % minutesPerHour == 0
             ? fmt::format("{} h", hours)
             : fmt::format("{} h {} min", hours, minutes % minutesPerHour);
}

}  // namespace nodo
