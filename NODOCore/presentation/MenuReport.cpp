#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/control/Reports.h>
#include <NODOCore/presentation/MenuReport.h>
#include <NODOCore/presentation/SetupMenu.h>

#include <algorithm>

#include <fmt/format.h>

namespace nodo {

namespace {

// As far back as the state remembers.
constexpr std::int64_t triggerHours = 12;

// From the minutes' counts, as the list of single requests is cut when there are many.
MenuTriggers triggersOf(const NODOState& state, Date now) {
  const TriggerActivitySummary summary(state.triggerActivityBuckets, now, triggerHours,
                                       triggerHours);
  return {.line = summary.menuLine(),
          .total = summary.total,
          .buckets = summary.buckets,
          .hours = summary.hours};
}

}  // namespace

MenuBarIconState menuBarIconState(const std::optional<StatusReport>& report,
                                  const std::optional<std::string>& errorMessage,
                                  bool hookFallbackActive, bool setupNeedsAttention) {
  if (!report) {
    return errorMessage ? MenuBarIconState::warning : MenuBarIconState::loading;
  }
  if (hookFallbackActive && !report->state.ownsSleepDisable) {
    return MenuBarIconState::warning;
  }
  if (report->decision.shouldPreventSleep) {
    return report->state.ownsSleepDisable ? MenuBarIconState::manualActive
                                          : MenuBarIconState::warning;
  }
  if (report->state.manualIsActive(report->generatedAt)) {
    return MenuBarIconState::manualActive;
  }
  return setupNeedsAttention ? MenuBarIconState::warning : MenuBarIconState::off;
}

std::optional<std::string> MenuBarCountdownFormatter::text(
    const std::optional<StatusReport>& report, Date at) {
  const auto remaining = report ? report->state.manualRemainingSeconds(at) : std::nullopt;
  if (remaining.value_or(0) < 1) {
    return std::nullopt;
  }
  return compactDuration(*remaining);
}

std::string MenuBarCountdownFormatter::compactDuration(std::int64_t seconds) {
  constexpr std::int64_t minute = 60;
  constexpr std::int64_t hour = 60 * minute;
  if (seconds < minute) {
    return fmt::format("{}s", std::max<std::int64_t>(seconds, 0));
  }
  if (seconds < hour) {
    return fmt::format("{}m", seconds / minute);
  }
  const std::int64_t minutes = seconds / minute % 60;
  return minutes == 0 ? fmt::format("{}h", seconds / hour)
                      : fmt::format("{}h{}m", seconds / hour, minutes);
}

MenuReport::MenuReport(const StatusReport& report, DoctorStatusSource statusSource,
                       std::optional<bool> liveSleepDisabled, bool hookFallbackActive,
                       const SetupMenuSignals& setup, Date now)
    : generatedAt(now),
      iconState(
          menuBarIconState(report, std::nullopt, hookFallbackActive, setup.isSetupIncomplete())),
      countdown(MenuBarCountdownFormatter::text(report, now)),
      triggers(triggersOf(report.state, now)),
      setupLine(SetupMenuPresentation::setupLine(setup)),
      verdict(doctorVerdict(report, statusSource, liveSleepDisabled)),
      statusSource(statusSource) {
  if (report.state.lastRequester) {
    requester = report.state.lastRequester->displayText();
  }
}

NODO_JSON_RECORD(MenuTriggers, fields, triggers) {
  fields.required("line", triggers.line);
  fields.required("total", triggers.total);
  fields.required("buckets", triggers.buckets);
  fields.required("hours", triggers.hours);
}

NODO_JSON_RECORD(MenuReport, fields, report) {
  fields.required("generatedAt", report.generatedAt);
  fields.required("iconState", report.iconState);
  fields.optional("countdown", report.countdown);
  fields.optional("requester", report.requester);
  fields.required("triggers", report.triggers);
  fields.optional("setupLine", report.setupLine);
  fields.required("verdict", report.verdict);
  fields.required("statusSource", report.statusSource);
}

JSONValue encode(const MenuReport& report, const Headline& headline) {
  JSONValue document = encode(report);
  document.setMember("headline", encode(headline));
  return document;
}

}  // namespace nodo
