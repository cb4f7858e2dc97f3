#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/control/StatusReport.h>

namespace nodo {
namespace {

template <class Fields, class Report>
void describe(Fields& fields, Report& report) {
  fields.required("generatedAt", report.generatedAt);
  fields.required("state", report.state);
  fields.required("snapshot", report.snapshot);
  fields.required("agents", report.agents);
  fields.required("decision", report.decision);
  fields.optional("manualRemainingSeconds", report.manualRemainingSeconds);
  fields.optional("noRouteGraceRemainingSeconds", report.noRouteGraceRemainingSeconds);
}

}  // namespace

JSONValue encode(const StatusReport& report) {
  ObjectEncoder fields;
  describe(fields, report);
  return fields.finish();
}

void decode(const JSONReader& from, StatusReport& report) {
  ObjectDecoder fields(from);
  describe(fields, report);
}

}  // namespace nodo
