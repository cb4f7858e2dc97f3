#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/daemon/PMSetSleepLock.h>
#include <NODOCore/power/CommandRunning.h>
#include <NODOCore/sensing/SystemSnapshot.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace nodo::test {

/// What is wrong with a tool.
enum class ToolFault {
  none,
  lies,     ///< says that it did it, exits 0, and does nothing; a tool that tells says nothing
  refuses,  ///< exits 1 with a word, and does nothing
  hangs,    ///< does nothing, and is killed after its time
  missing,  ///< cannot be started
};

/// A Mac, as far as its sleep goes: what pmset says and what the kernel does are two things here.
///
/// pmset writes a preference, which is on disk. powerd makes it the kernel's a moment later, and at
/// every start of the machine. While the kernel's flag is set nothing puts the machine to sleep: no
/// lid, no `pmset sleepnow` (exit 71), no empty battery. Once it is cleared nobody looks at the lid
/// again. A value: a copy is another machine in the same condition. Not thread-safe.
class StandInMac {
 public:
  // ---- what it is

  std::optional<bool> preference;         ///< absent: it was never set
  std::optional<bool> kernel;             ///< the flag; absent: not set since the start
  Seconds powerdDelay{0};                 ///< from the preference to the flag
  std::optional<Seconds> powerdApplies;   ///< when it will next, in `awake`
  std::optional<bool> lidClosed = false;  ///< absent: a Mac without a lid
  PowerSource source = PowerSource::ac;
  std::int64_t batteryPercent = 80;
  bool hasRoute = true;
  bool isAsleep = false;
  Seconds awake{0};  ///< how long it has been so

  /// By command line, e.g. "/usr/bin/pmset -a disablesleep 0", or by tool, e.g. "/usr/sbin/ioreg".
  std::map<std::string, ToolFault> faults;

  std::vector<std::string> commandLines;  ///< all that were run

  // ---- what happens to it

  bool isSleepDisabled() const { return kernel.value_or(false); }

  /// Time goes by, in which powerd does its work.
  void pass(Seconds length);

  /// On battery a closed lid puts it to sleep, unless that is disabled.
  void setLidClosed(bool closed);

  /// The battery is empty or the machine too hot.
  void needsEmergencySleep() { sleepUnlessDisabled(); }

  void wake() { isAsleep = false; }

  /// The kernel forgets, powerd applies what is on disk.
  void restart();

  /// Does what the tool does. Throws as ProcessCommandRunner with a limit.
  CommandOutput run(const std::string& executable, const std::vector<std::string>& arguments);

 private:
  ToolFault faultOf(const std::string& executable, const std::string& commandLine) const;
  void perform(const std::string& commandLine, CommandOutput& output);
  bool sleepUnlessDisabled();
  std::string battery() const;
  std::string domain() const;
};

/// The tools of a StandInMac, which lives longer.
class StandInTools : public CommandRunning {
 public:
  explicit StandInTools(StandInMac& mac) : mac_(mac) {}

  CommandOutput run(const std::string& executable,
                    const std::vector<std::string>& arguments) const override {
    return mac_.run(executable, arguments);
  }

 private:
  StandInMac& mac_;
};

/// Waits in the time of a StandInMac, which lives longer.
Waiting waitingOn(StandInMac& mac);

}  // namespace nodo::test
