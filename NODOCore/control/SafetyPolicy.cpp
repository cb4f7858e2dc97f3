#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/control/SafetyPolicy.h>

namespace nodo {
namespace {

template <class Fields, class Policy>
void describe(Fields& fields, Policy& policy) {
  fields.required("minimumBatteryPercent", policy.minimumBatteryPercent);
  fields.required("maxManualDurationMinutes", policy.maxManualDurationMinutes);
  fields.required("lidOpenGraceSeconds", policy.lidOpenGraceSeconds);
  fields.required("noRouteGraceSeconds", policy.noRouteGraceSeconds);
}

}  // namespace

JSONValue encode(const SafetyPolicy& policy) {
  ObjectEncoder fields;
  describe(fields, policy);
  return fields.finish();
}

void decode(const JSONReader& from, SafetyPolicy& policy) {
  ObjectDecoder fields(from);
  describe(fields, policy);
}

}  // namespace nodo
