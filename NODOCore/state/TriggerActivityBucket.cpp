#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/state/TriggerActivityBucket.h>

namespace nodo {
namespace {

template <class Fields, class Bucket>
void describe(Fields& fields, Bucket& bucket) {
  fields.required("startedAt", bucket.startedAt);
  fields.required("count", bucket.count);
}

}  // namespace

JSONValue encode(const TriggerActivityBucket& bucket) {
  ObjectEncoder fields;
  describe(fields, bucket);
  return fields.finish();
}

void decode(const JSONReader& from, TriggerActivityBucket& bucket) {
  ObjectDecoder fields(from);
  describe(fields, bucket);
}

}  // namespace nodo
