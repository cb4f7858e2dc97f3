#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/control/TriggerActivitySummary.h>
#include <NODOCore/presentation/MenuBarCountdownFormatter.h>
#include <NODOCore/presentation/MenuReport.h>
#include <NODOCore/presentation/SetupMenuPresentation.h>

namespace nodo {
namespace {

// As far back as the state remembers.
constexpr std::int64_t triggerHours = 12;

template <class Fields, class Triggers>
void describeTriggers(Fields& fields, Triggers& triggers) {
  fields.required("line", triggers.line);
  fields.required("total", triggers.total);
  fields.required("buckets", triggers.buckets);
  fields.required("hours", triggers.hours);
}

template <class Fields, class Report>
void describeReport(Fields& fields, Report& report) {
  fields.required("generatedAt", report.generatedAt);
  fields.required("iconState", report.iconState);
  fields.optional("countdown", report.countdown);
  fields.optional("requester", report.requester);
  fields.required("triggers", report.triggers);
  fields.optional("setupLine", report.setupLine);
  fields.required("verdict", report.verdict);
  fields.required("statusSource", report.statusSource);
}

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

MenuReport::MenuReport(const StatusReport& report, DoctorStatusSource statusSource,
                       std::optional<bool> liveSleepDisabled, bool hookFallbackActive,
                       const SetupMenuSignals& setup, Date now)
    : generatedAt(now),
      iconState(
          menuBarIconState(report, std::nullopt, hookFallbackActive, setup.isSetupIncomplete())),
      countdown(MenuBarCountdownFormatter::text(report, now)),
      triggers(triggersOf(report.state, now)),
      setupLine(SetupMenuPresentation::setupLine(setup)),
      verdict(DoctorReportFormatter::verdict(report, statusSource, liveSleepDisabled)),
      statusSource(statusSource) {
  if (report.state.lastRequester) {
    requester = report.state.lastRequester->displayText();
  }
}

JSONValue encode(const MenuTriggers& triggers) {
  ObjectEncoder fields;
  describeTriggers(fields, triggers);
  return fields.finish();
}

void decode(const JSONReader& from, MenuTriggers& triggers) {
  ObjectDecoder fields(from);
  describeTriggers(fields, triggers);
}

JSONValue encode(const MenuReport& report) {
  ObjectEncoder fields;
  describeReport(fields, report);
  return fields.finish();
}

void decode(const JSONReader& from, MenuReport& report) {
  ObjectDecoder fields(from);
  describeReport(fields, report);
}

}  // namespace nodo
