#pragma once

#include <NODOCore/power/PowerManaging.h>
#include <platform/DaemonMachine.h>

#include <optional>
#include <vector>

namespace nodo::nodod {

/// The machine's sleep lock, with a memory of what was done to it.
///
/// Exists because a pass may switch the lock and fail afterwards, e.g. on a full disk: what the
/// lock is then is known here alone.
class WatchedLock : public PowerManaging {
 public:
  explicit WatchedLock(SleepLock lock);

  PowerOperationResult setSleepDisabled(bool disabled) override;
  PowerOperationResult requestSleepNow() override;

  /// Whether the lock stands, as the machine says; absent when it cannot tell.
  std::optional<bool> askMachine();

  /// The last that was heard of it, from the machine or by switching it; absent when nothing was.
  std::optional<bool> isHeld() const { return isHeld_; }

  /// Whether this process switched it on and not off again.
  bool wasTaken() const { return wasTaken_; }

  bool diesWithProcess() const { return lock_.diesWithProcess; }

  /// What was done since the last call, failures included.
  std::vector<PowerOperationResult> takeOperations();

 private:
  SleepLock lock_;
  std::optional<bool> isHeld_;
  bool wasTaken_ = false;
  std::vector<PowerOperationResult> operations_;
};

}  // namespace nodo::nodod
