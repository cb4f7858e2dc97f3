#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/control/DaemonRunReport.h>

namespace nodo {
namespace {

template <class Fields, class Report>
void describe(Fields& fields, Report& report) {
  fields.required("generatedAt", report.generatedAt);
  fields.required("status", report.status);
  fields.optional("operation", report.operation);
  fields.required("operations", report.operations);
  fields.required("stateChanged", report.stateChanged);
}

}  // namespace

JSONValue encode(const DaemonRunReport& report) {
  ObjectEncoder fields;
  describe(fields, report);
  return fields.finish();
}

void decode(const JSONReader& from, DaemonRunReport& report) {
  ObjectDecoder fields(from);
  describe(fields, report);
}

}  // namespace nodo
