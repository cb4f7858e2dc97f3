#pragma once

#include <NODOCore/daemon/DaemonLoop.h>
#include <NODOCore/daemon/LockLife.h>
#include <NODOCore/power/PowerManaging.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace nodo {

class LockMark;

/// How the lock is held, where the system tells people of it and knows more than one kind.
struct LockTerms {
  std::string why;  ///< for people who look up what keeps the machine awake
  bool keepsDisplayOn = false;

  bool operator==(const LockTerms&) const = default;
};

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
  /// Where a lock that outlives processes is marked as nodo's, see LockMark; none for others.
  std::optional<std::filesystem::path> mark = std::nullopt;
  /// Sets the terms of a lock that is taken from now on, and of one that is held, which is never
  /// off meanwhile. Throws when the system refuses; the lock then stands as before. Empty where
  /// nobody is told.
  std::function<void(const LockTerms& terms)> setTerms = nullptr;
  /// Locks the screens of all who are logged in. Throws when the system refuses. Empty where it has
  /// no such thing.
  std::function<void()> lockSessions = nullptr;
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
/// lock is then is known here alone. One that outlives processes is marked before it is switched,
/// and a switch that failed counts as one that may still come to pass.
class WatchedLock : public PowerManaging {
 public:
  /// Takes over the mark of an earlier process.
  explicit WatchedLock(SleepLock lock);

  void announce(const std::string& reason) override { reason_ = reason; }

  /// As the manager's. Without the mark the lock is not switched on: throws std::system_error
  /// before anything is tried.
  PowerOperationResult setSleepDisabled(bool disabled) override;
  PowerOperationResult requestSleepNow() override;

  /// Sets the lock's terms: it says until when the machine is kept awake, and how that is ended.
  /// Costs nothing where what it says stays the same. Throws as SleepLock::setTerms does.
  void setTerms(Date until, bool keepsDisplayOn, Date now);

  /// As SleepLock::lockSessions; nothing where the system has no such thing.
  void lockSessions() const;

  /// The lock now, as the machine says; as it was last known when it cannot tell.
  LockLook askMachine(const Moment& at);

  /// The lock as it is known without asking.
  LockLook look(const Moment& at) const;

  /// Takes a lock that is on for nodo's own, as the state says, and marks it if that can be done.
  void adopt();

  bool diesWithProcess() const { return lock_.diesWithProcess; }

  /// Throws std::system_error.
  void removeMark();

  /// What was done since the last call, failures included.
  std::vector<LockOperation> takeOperations();

 private:
  void setMark(bool isRequired);

  SleepLock lock_;
  std::shared_ptr<LockMark> mark_;
  LockReading reading_ = LockReading::unknown;
  bool owesRelease_ = false;
  std::optional<Date> until_;  // as the terms say it; absent: they were never set
  LockTerms terms_;
  std::string reason_;
  std::vector<LockOperation> operations_;
};

/// What failed, in the words of the log: "switching the sleep lock on failed (exit 1): refused".
std::string troubleText(const PowerOperationResult& operation);

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
