#pragma once

#include <NODOCore/base/Date.h>

#include <memory>
#include <optional>
#include <vector>

#include <sys/types.h>

namespace nodo::nodoctl {

/// A signal that came in.
struct CaughtSignal {
  int number = 0;
  /// The process that sent it, 0 for one out of sight; absent for one by the system, e.g. for a key
  /// on the terminal.
  std::optional<pid_t> sender;

  bool operator==(const CaughtSignal&) const = default;
};

/// Signals, in the order of their coming, for a program that does one thing after another.
class SignalQueue {
 public:
  virtual ~SignalQueue() = default;

  /// The next signal; nothing when none came within `limit`.
  virtual std::optional<CaughtSignal> next(Seconds limit) = 0;
};

/// Catches `signals` for as long as it lives, except those that this process was told to ignore.
/// There may be one at a time. Throws std::system_error.
std::unique_ptr<SignalQueue> catchSignals(const std::vector<int>& signals);

/// Lets `signal` do to this process what it does by default; returns when it goes on after that.
void sufferSignal(int signal);

}  // namespace nodo::nodoctl
