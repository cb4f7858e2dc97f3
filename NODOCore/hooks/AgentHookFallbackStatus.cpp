#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/hooks/AgentHookFallbackStatus.h>

namespace nodo {
namespace {

template <class Fields, class Status>
void describe(Fields& fields, Status& status) {
  fields.required("isActive", status.isActive);
  fields.required("logPath", status.logPath);
  fields.optional("lastStartedAt", status.lastStartedAt);
  fields.required("fallbackSeconds", status.fallbackSeconds);
}

}  // namespace

JSONValue encode(const AgentHookFallbackStatus& status) {
  ObjectEncoder fields;
  describe(fields, status);
  return fields.finish();
}

void decode(const JSONReader& from, AgentHookFallbackStatus& status) {
  ObjectDecoder fields(from);
  describe(fields, status);
}

}  // namespace nodo
