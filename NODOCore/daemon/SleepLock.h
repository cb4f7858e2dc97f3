#pragma once

#include <NODOCore/daemon/DaemonLoop.h>
#include <NODOCore/power/PowerManaging.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace nodo {

/// The machine's sleep lock, as the daemon has it.
struct SleepLock {
  std::unique_ptr<PowerManaging> manager;
  /// Whether the lock stands now, as the machine itself says; absent when it cannot tell. Must not
  /// throw. Of no use beyond the manager's life.
  std::function<std::optional<bool>()> isHeld;
  /// Whether the system frees the lock when this process ends, so that a lock of an earlier process
  /// is gone.
  bool diesWithProcess = false;
  /// Whether nothing is really switched.
  bool isSimulated = false;
};

/// A lock that switches nothing and never stands, for machines and tests without one.
SleepLock simulatedSleepLock();

/// What was done to the lock, and why in the words of the state's audit.
struct LockOperation {
  PowerOperationResult result;
  std::string reason;
};

/// The machine's sleep lock, with a memory of what was done to it.
///
/// Exists because a pass may switch the lock and fail afterwards, e.g. on a full disk: what the
/// lock is then is known here alone.
class WatchedLock : public PowerManaging {
 public:
  explicit WatchedLock(SleepLock lock);

  void announce(const std::string& reason) override { reason_ = reason; }

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
  std::vector<LockOperation> takeOperations();

 private:
  SleepLock lock_;
  std::optional<bool> isHeld_;
  bool wasTaken_ = false;
  std::string reason_;
  std::vector<LockOperation> operations_;
};

/// Tells in a line each what was done to the sleep lock and why. An attempt that fails, or is only
/// simulated, is told of once until one succeeds: it is repeated every minute.
class OperationLog {
 public:
  explicit OperationLog(DaemonLog log) : log_(std::move(log)) {}

  /// `requester` is who the lock is taken for; empty when that is unknown.
  void add(const LockOperation& operation, const std::string& requester = "");

  /// The same for an attempt that has no result.
  void addTrouble(const std::string& line);

 private:
  DaemonLog log_;
  std::string lastTrouble_;
};

}  // namespace nodo
