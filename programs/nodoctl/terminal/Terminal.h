#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/base/Environment.h>

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <poll.h>
#include <sys/types.h>

namespace nodo::nodoctl {

struct TerminalSize {
  int columns = 80;
  int rows = 24;

  bool operator==(const TerminalSize&) const = default;
};

/// Where standard output goes, if that is a terminal.
class Terminal {
 public:
  virtual ~Terminal() = default;

  virtual bool isTerminal() const = 0;

  /// The size now; a usual one where the terminal does not tell.
  virtual TerminalSize size() const = 0;

  /// Writes all of `text`, in one go where the terminal takes it. Throws std::system_error.
  virtual void write(std::string_view text) = 0;

  /// Whether what is typed shows up, and can be read only by the line. To switch that off waits
  /// until the terminal is this process's.
  virtual void setEcho(bool on) = 0;

  /// What to wait for beside signals: keys typed for this process, and the end of whoever reads a
  /// pipe. Its `revents` tell what came.
  virtual pollfd events() const = 0;

  /// What was typed, once `events` say that something was.
  virtual std::string typed() = 0;
};

/// The terminal behind an open descriptor, which must outlive it.
std::shared_ptr<Terminal> terminalAt(int descriptor);

/// What may be shown there.
struct TextStyle {
  bool colour = false;
  bool utf8 = false;

  bool operator==(const TextStyle&) const = default;
};

/// As the locale's variables and NO_COLOR say; colour only on a terminal that can show it.
TextStyle textStyle(const Environment& environment, bool isTerminal);

/// Whether a frame can be redrawn in place there.
bool canRedraw(const Environment& environment, bool isTerminal);

/// A signal that came in.
struct CaughtSignal {
  int number = 0;
  /// The process that sent it, 0 for one out of sight; absent for one by the terminal, which sends
  /// to the whole process group.
  std::optional<pid_t> sender;

  bool operator==(const CaughtSignal&) const = default;
};

/// Signals, in the order of their coming, for a program that does one thing after another.
class SignalQueue {
 public:
  virtual ~SignalQueue() = default;

  /// The next signal; nothing when none came within `limit`.
  std::optional<CaughtSignal> next(Seconds limit) { return next(limit, {}); }

  /// The same, but also nothing as soon as something came that one of `others` waits for, whose
  /// `revents` then tell.
  virtual std::optional<CaughtSignal> next(Seconds limit, std::span<pollfd> others) = 0;
};

/// Catches `signals` for as long as it lives, except those that this process was told to ignore.
/// There may be one at a time. Throws std::system_error.
std::unique_ptr<SignalQueue> catchSignals(const std::vector<int>& signals);

/// Lets `signal` do to this process what it does by default; returns when it goes on after that.
void raiseWithDefaultAction(int signal);

}  // namespace nodo::nodoctl
