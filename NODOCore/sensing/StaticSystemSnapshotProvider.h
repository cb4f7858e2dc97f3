#pragma once

#include <NODOCore/sensing/SystemSnapshotProviding.h>

namespace nodo {

/// A machine whose condition never changes, for tests and previews.
class StaticSystemSnapshotProvider : public SystemSnapshotProviding {
 public:
  SystemSnapshot value;

  explicit StaticSystemSnapshotProvider(SystemSnapshot value) : value(value) {}

  /// `value`, dated `now`. Never fails.
  SystemSnapshot snapshot(Date now) const override {
    SystemSnapshot dated = value;
    dated.now = now;
    return dated;
  }
};

}  // namespace nodo
