#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/diagnostics/SleepDiagnosticsReport.h>

namespace nodo {
namespace {

template <class Fields, class Report>
void describe(Fields& fields, Report& report) {
  fields.required("generatedAt", report.generatedAt);
  fields.optional("sleepDisabled", report.sleepDisabled);
  fields.optional("sleepLine", report.sleepLine);
  fields.optional("displaySleepLine", report.displaySleepLine);
  fields.required("assertionStatuses", report.assertionStatuses);
  fields.required("blockers", report.blockers);
}

}  // namespace

JSONValue encode(const SleepDiagnosticsReport& report) {
  ObjectEncoder fields;
  describe(fields, report);
  return fields.finish();
}

void decode(const JSONReader& from, SleepDiagnosticsReport& report) {
  ObjectDecoder fields(from);
  describe(fields, report);
}

}  // namespace nodo
