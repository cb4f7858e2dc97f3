#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/hooks/AgentHookInstallReport.h>

namespace nodo {
namespace {

template <class Fields, class Report>
void describe(Fields& fields, Report& report) {
  fields.required("target", report.target);
  fields.required("path", report.path);
  fields.required("changed", report.changed);
  fields.required("message", report.message);
  fields.optional("error", report.error);
}

}  // namespace

JSONValue encode(const AgentHookInstallReport& report) {
  ObjectEncoder fields;
  describe(fields, report);
  return fields.finish();
}

void decode(const JSONReader& from, AgentHookInstallReport& report) {
  ObjectDecoder fields(from);
  describe(fields, report);
}

}  // namespace nodo
