#pragma once

#include <NODOCore/base/Files.h>
#include <NODOCore/power/PowerManaging.h>
#include <platform/linux/logind/Logind.h>

#include <optional>

namespace nodo {

/// Keeps the machine awake by one inhibitor of logind's.
///
/// This object holds the inhibitor's descriptor, so the lock ends with the process at the latest,
/// however that ends. logind's own list is the authority on whether the lock stands. Every question
/// to logind is bounded to two seconds. Not thread-safe.
class LogindPowerManager : public PowerManaging {
 public:
  LogindPowerManager();

  /// Takes one inhibitor of these terms from now on. One that is held is closed after the new one
  /// stands, so that there is never a gap, and kept where that does not come about. Throws
  /// BusRefusal and BusError then.
  void setTerms(const LockTerms& terms);

  /// Takes the inhibitor, or lets go of it and waits until logind knows that. A refusal by logind
  /// is a result with exit code 1 and its words in `standardError`. Throws BusError when there is
  /// no system bus or no logind on it, unless there was a lock to let go of: that needs neither.
  /// Taking it again renews it. A list that still holds the inhibitor after some two seconds is
  /// exit code 1, too, although the descriptor is closed by then.
  PowerOperationResult setSleepDisabled(bool disabled) override;

  /// Lets go of the lock, then asks logind to suspend; same failures.
  PowerOperationResult requestSleepNow() override;

  /// Whether logind lists this process's inhibitor; absent when logind cannot be asked.
  std::optional<bool> isHeld() noexcept;

  /// Asks all sessions to lock their screens. Throws BusRefusal and BusError.
  void lockSessions() { logind_.lockSessions(); }

 private:
  PowerOperationResult take();
  PowerOperationResult release();
  bool isListed();
  bool isGoneFromList();

  Logind logind_;
  Inhibitor lock_;  // as logind is asked for it
  FileDescriptor inhibitor_;
};

}  // namespace nodo
