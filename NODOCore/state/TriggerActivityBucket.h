#pragma once

#include <NODOCore/base/Date.h>

#include <cstdint>

namespace nodo {

class JSONReader;
class JSONValue;

/// How many keep-awake requests one minute saw.
struct TriggerActivityBucket {
  Date startedAt;  ///< a whole multiple of 60 seconds since 1970-01-01 UTC
  std::int64_t count = 0;

  bool operator==(const TriggerActivityBucket&) const = default;
};

JSONValue encode(const TriggerActivityBucket& bucket);
void decode(const JSONReader& from, TriggerActivityBucket& bucket);

}  // namespace nodo
