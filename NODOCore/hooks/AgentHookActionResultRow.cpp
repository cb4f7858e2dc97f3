#include <NODOCore/hooks/AgentHookActionResultRow.h>

namespace nodo {
namespace {

template <class Fields, class Row>
void describe(Fields& fields, Row& row) {
  fields.required("target", row.target);
  fields.required("targetDisplayName", row.targetDisplayName);
  fields.required("state", row.state);
  fields.required("message", row.message);
}

}  // namespace

JSONValue encode(const AgentHookActionResultRow& row) {
  ObjectEncoder fields;
  describe(fields, row);
  return fields.finish();
}

void decode(const JSONReader& from, AgentHookActionResultRow& row) {
  ObjectDecoder fields(from);
  describe(fields, row);
}

}  // namespace nodo
