#pragma once

#include <NODOCore/daemon/LockLife.h>

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace nodo::test {

inline int wholeSecondsOf(Seconds seconds) {
  return static_cast<int>(seconds.count());
}

/// The rule by which a daemon in a LockWorld lives.
using FollowRule = std::function<LockStep(LockLife life, const LockEvent& event)>;

/// All that can happen around a sleep lock, one at a time.
enum class Letter {
  wake,  ///< time goes by until the daemon wakes by itself
  halfAMinute,
  timerAsked,
  stopAsked,
  repairAsked,
  passAsked,
  toolWorks,
  toolRefuses,
  toolHangs,
  toolIsLate,  ///< it fails, and what it was asked for comes to pass later
  lateSwitch,  ///< which is now
  lockReadableOrNot,
  stateReadableOrNot,
  stateWritableOrNot,
  somebodySwitchesOn,
  somebodySwitchesOff,
  lid,
  powerSource,
  charge,
  resume,
  clockBack,
  clockAhead,
  kill,       ///< and a start
  terminate,  ///< and a start
};

inline constexpr int letterCount = static_cast<int>(Letter::terminate) + 1;
extern const std::array<const char*, letterCount> letterNames;

/// A small model of a machine with its sleep lock, the daemon's disk and its controller, for walks
/// through everything that can happen. It knows the truth, so that it can tell what the daemon does
/// wrong. A value; time in whole seconds.
struct LockWorld {
  static constexpr int timerLength = 150;
  static constexpr int day = 86400;

  enum class Tool { works, refuses, hangs, isLate };

  bool isLasting = false;  ///< whether the lock outlives processes, as a Mac's
  // The machine.
  bool isLockOn = false;
  std::optional<bool> lateSwitch;
  Tool tool = Tool::works;
  bool isLockReadable = true;
  bool isLidClosed = false;
  bool isOnBattery = false;
  bool isChargeLow = false;
  int civil = 1'000'000;
  int running = 1000;
  int clockSteps = 0;  ///< ahead less those back
  // The disk.
  bool isReadable = true;
  bool isWritable = true;
  std::optional<int> timerEnd;
  bool ownsLock = false;
  bool showsUse = false;
  bool isMarked = false;
  // What a process remembers of its lock.
  LockReading reading = LockReading::unknown;
  bool owesRelease = false;
  LockLife life;
  // The truth.
  std::optional<int> trueEnd;  ///< of the timer that people count on, by the machine's clock
  bool isLockOurs = false;
  bool isSleepOwed = false;
  bool hasSlept = false;  ///< since the lock was released
  int sleepRequests = 0;
  bool wasRepairAsked = false;
  std::optional<int> confirmedAt;  ///< by the last pass that went through
  std::vector<int> losses;
  std::string fault;  ///< what was done wrong on the way, if anything was

  /// A daemon that has just started.
  static LockWorld beginning(bool lasting, const FollowRule& rule);

  /// Whether the letter makes a difference now.
  bool isPossible(Letter letter) const;

  void apply(Letter letter, const FollowRule& rule);

  /// What is wrong, or will be though everything works from now on; empty when nothing is.
  std::string complaint(const FollowRule& rule) const;

  /// The same for worlds from which the same follows.
  std::string key() const;

 private:
  class Daemon;

  bool isTimerRunning() const { return trueEnd && *trueEnd > running; }

  bool isVetoed() const { return isOnBattery && isChargeLow; }

  bool isLidClosedOnBattery() const { return isLidClosed && isOnBattery; }

  Moment moment() const;
  void pass(int seconds);
  std::string complaintNow() const;
  std::string complaintOnceToolsWork(const FollowRule& rule) const;
  std::string complaintOnceAllWorks(const FollowRule& rule) const;
  void switchLock(bool on, bool byUs);
  void believeFile();
};

}  // namespace nodo::test
