#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/sensing/SystemSnapshot.h>

namespace nodo {
namespace {

template <class Fields, class Snapshot>
void describe(Fields& fields, Snapshot& snapshot) {
  fields.required("now", snapshot.now);
  fields.required("powerSource", snapshot.powerSource);
  fields.optional("batteryPercent", snapshot.batteryPercent);
  fields.optional("defaultRouteAvailable", snapshot.defaultRouteAvailable);
  fields.optional("lidClosed", snapshot.lidClosed);
}

}  // namespace

JSONValue encode(const SystemSnapshot& snapshot) {
  ObjectEncoder fields;
  describe(fields, snapshot);
  return fields.finish();
}

void decode(const JSONReader& from, SystemSnapshot& snapshot) {
  ObjectDecoder fields(from);
  describe(fields, snapshot);
}

}  // namespace nodo
