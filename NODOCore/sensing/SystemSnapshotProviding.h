#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/sensing/SystemSnapshot.h>

namespace nodo {

/// Takes a snapshot of the machine.
///
/// Exists so that decisions can be tested without a machine in that condition. Implementations may
/// be used from several threads at once; a call blocks until everything is read.
class SystemSnapshotProviding {
 public:
  virtual ~SystemSnapshotProviding() = default;

  /// The machine's condition, dated `now`. Throws what the implementation documents.
  virtual SystemSnapshot snapshot(Date now) const = 0;
};

}  // namespace nodo
