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

// In minutes where that is exact.
std::string graceText(std::int64_t seconds) {
  return seconds % 60 == 0 ? fmt::format("{} min", seconds / 60) : fmt::format("{} s", seconds);
}

std::string tooHotText(const StatusReport& report) {
  const bool isCritical = report.snapshot.thermalPressure == ThermalPressure::critical;
  const auto since = report.state.seriousHeatSince;
  return fmt::format("the computer is too hot{} ({})",
                     isCritical || !since
                         ? ""
                         : " with its lid closed since " + clockText(*since, report.generatedAt),
                     heatText(report.snapshot));
}

std::string joinedSafetyTexts(const KeepAwakeFacts& facts) {
  return fmt::format("{}", fmt::join(safetyTexts(facts), ", "));
}

// Why no timer runs, where that is worth a word.
std::string idleText(const NODOState& state) {
  const std::string why = state.lastStopReason.value_or("");
  return why == reason::manualExpired ? "the timer has run out"
         : why == reason::userStop    ? "the timer was stopped"
                                      : "no timer runs";
}

Headline withoutDaemon(const KeepAwakeFacts& facts) {
  if (facts.lockIsOn == true) {
    return {
        HeadlineKind::lockWithoutWord,
        fmt::format("Kept awake by a lock of nodo's, but not by this: {}.", *facts.daemonFailure)};
  }
  return {HeadlineKind::daemonMissing,
          fmt::format("NOT kept awake by this: {}.", *facts.daemonFailure)};
}

Headline withDaemon(const KeepAwakeFacts& facts) {
  const StatusReport& report = facts.report;
  const bool isOwned = report.state.ownsSleepDisable;
  if (report.decision.shouldPreventSleep) {
    const std::string until = isTimerRunning(report) ? " " + untilText(report) : "";
    if (isOwned && facts.lockIsOn == true) {
      return {HeadlineKind::keptAwake, fmt::format("Kept awake{}.", until)};
    }
    if (isOwned && !facts.lockIsOn) {
      return {HeadlineKind::unconfirmed,
              fmt::format("Probably kept awake{}: the daemon holds the sleep lock, but this "
                          "machine cannot be asked about it.",
                          until)};
    }
    return {HeadlineKind::lockMissing,
            fmt::format("NOT kept awake by nodo, although the timer runs{}: {}.", until,
                        isOwned                  ? "somebody has switched the sleep lock off"
                        : facts.lockIsOn == true ? "the sleep lock that is on is not nodo's"
                                                 : "the sleep lock could not be taken")};
  }
  if (isOwned || facts.lockIsOn == true) {
    return {
        HeadlineKind::lockLeft,
        fmt::format("Still kept awake: the sleep lock is on, although {}.",
                    isTimerRunning(report) ? "sleep is to be allowed, " + joinedSafetyTexts(facts)
                                           : "nothing asks for it")};
  }
  if (isTimerRunning(report)) {
    return {HeadlineKind::sleepAllowed,
            fmt::format("The timer runs, but sleep is allowed: {}. It runs {}.",
                        joinedSafetyTexts(facts), untilText(report))};
  }
  return {
      HeadlineKind::off,
      fmt::format("Not kept awake: {}.{}", idleText(report.state),
                  facts.isNoAgentSetUp ? " No agent is set up yet: nodoctl hooks install" : "")};
}

}  // namespace

Headline headline(const KeepAwakeFacts& facts) {
  Headline found = facts.daemonFailure ? withoutDaemon(facts) : withDaemon(facts);
  found.text = escapedForDisplay(found.text);
  return found;
}

std::string safetyText(const std::string& block, const KeepAwakeFacts& facts) {
  const SystemSnapshot& machine = facts.report.snapshot;
  const auto& limits = facts.limits;
  if (block == reason::batteryBelowThreshold && machine.batteryPercent) {
    return fmt::format("battery at {} %", *machine.batteryPercent) +
           (limits ? fmt::format(" (limit {} %)", limits->minimumBatteryPercent) : "");
  }
  const auto missingSince = facts.report.state.noRouteUnavailableSince;
  if (block == reason::networkUnavailable && missingSince) {
    return "no network since " + clockText(*missingSince, facts.report.generatedAt) +
           (limits ? fmt::format(" (limit {})", graceText(limits->noRouteGraceSeconds)) : "");
  }
  if (block == reason::thermalPressure && machine.thermalPressure) {
    return tooHotText(facts.report);
  }
  if (block == reason::lowPowerMode) {
    return "low power mode is on" +
           (machine.batteryPercent ? fmt::format(" (battery at {} %)", *machine.batteryPercent)
                                   : "");
  }
  return block;
}

std::string heatText(const SystemSnapshot& machine) {
  if (const auto& zone = machine.hotZone) {
    return fmt::format("{} at {} °C, limit {} °C", zone->name, zone->celsius, zone->limitCelsius);
  }
  return machine.thermalPressure
             ? fmt::format("thermal state {}", rawValue(*machine.thermalPressure))
             : "thermal state unknown";
}

std::vector<std::string> safetyTexts(const KeepAwakeFacts& facts) {
  std::vector<std::string> texts;
  for (const std::string& block : facts.report.decision.safetyBlocks) {
    texts.push_back(safetyText(block, facts));
  }
  return texts;
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
