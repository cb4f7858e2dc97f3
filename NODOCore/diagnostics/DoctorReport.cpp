#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/diagnostics/DoctorReport.h>

#include <utility>

namespace nodo {
namespace {

template <class Fields, class Report>
void describe(Fields& fields, Report& report) {
  fields.required("statusSource", report.statusSource);
  fields.required("report", report.report);
  fields.optional("liveSleepDisabled", report.liveSleepDisabled);
  fields.optional("hookFallback", report.hookFallback);
  fields.optional("hookInspection", report.hookInspection);
  fields.required("verdict", report.verdict);
}

}  // namespace

DoctorReport::DoctorReport(DoctorStatusSource statusSource, StatusReport report,
                           std::optional<bool> liveSleepDisabled,
                           std::optional<AgentHookFallbackStatus> hookFallback,
                           std::optional<AgentHookSetupInspection> hookInspection)
    : statusSource(statusSource),
      report(std::move(report)),
      liveSleepDisabled(liveSleepDisabled),
      hookFallback(std::move(hookFallback)),
      hookInspection(std::move(hookInspection)),
      verdict(DoctorReportFormatter::verdict(this->report, statusSource, liveSleepDisabled)) {}

bool DoctorReport::isReady() const {
  return verdict.starts_with("Ready:");
}

std::string DoctorReport::text() const {
  return DoctorReportFormatter::format(report, statusSource, liveSleepDisabled, hookFallback,
                                       hookInspection);
}

JSONValue encode(const DoctorReport& report) {
  ObjectEncoder fields;
  describe(fields, report);
  return fields.finish();
}

void decode(const JSONReader& from, DoctorReport& report) {
  ObjectDecoder fields(from);
  describe(fields, report);
}

}  // namespace nodo
