#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/sensing/SystemSnapshot.h>

namespace nodo {

/// Takes a snapshot of the machine.
///
/// Exists so that decisions can be tested without a machine in that condition. A call blocks until
/// everything is read. An implementation is used by one thread at a time.
class SystemSnapshotProviding {
 public:
  virtual ~SystemSnapshotProviding() = default;

  /// The machine's condition, dated `now`. Throws what the implementation documents.
  virtual SystemSnapshot snapshot(Date now) const = 0;
};

}  // namespace nodo
