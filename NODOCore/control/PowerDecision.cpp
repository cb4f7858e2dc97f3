#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/control/PowerDecision.h>

namespace nodo {
namespace {

template <class Fields, class Decision>
void describe(Fields& fields, Decision& decision) {
  fields.required("shouldPreventSleep", decision.shouldPreventSleep);
  fields.required("reasons", decision.reasons);
  fields.required("safetyBlocks", decision.safetyBlocks);
  fields.optional("stopReason", decision.stopReason);
}

}  // namespace

JSONValue encode(const PowerDecision& decision) {
  ObjectEncoder fields;
  describe(fields, decision);
  return fields.finish();
}

void decode(const JSONReader& from, PowerDecision& decision) {
  ObjectDecoder fields(from);
  describe(fields, decision);
}

}  // namespace nodo
