#pragma once

#include <NODOCore/power/PowerOperationResult.h>

namespace nodo {

/// Changes the machine's sleep behaviour: the one place where that happens.
///
/// Exists so that the controller can be tested without touching a machine: production drives the
/// system's tool or service, tests a fake with failure knobs. Not thread-safe; serialising calls is
/// the caller's concern. Every call blocks until the tool or service has answered.
class PowerManaging {
 public:
  virtual ~PowerManaging() = default;

  /// Switches the machine-wide sleep lock on or off. A refusal by the system is a result with a
  /// non-zero exit code. Throws when nothing could be tried (tool or service absent). Repeating a
  /// call is harmless.
  virtual PowerOperationResult setSleepDisabled(bool disabled) = 0;

  /// Asks the machine to sleep at once; same failures. The default does nothing and says so: a dry
  /// run without a command.
  virtual PowerOperationResult requestSleepNow();
};

}  // namespace nodo
