#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/base/TextEnum.h>

#include <array>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace nodo {

/// An instant by both of the machine's clocks.
///
/// The civil one is set by people and by time services, forwards and backwards. The other counts
/// the time since the machine was started, its sleep included, and is never set.
struct Moment {
  Date civil;
  Seconds running{0};

  bool operator==(const Moment&) const = default;
};

/// What is known of the sleep lock.
enum class LockReading { unknown, off, on };

/// The lock as it is when something happens.
struct LockLook {
  Moment at;
  LockReading lock = LockReading::unknown;  ///< the last that the machine said, or was made to do
  /// Whether this process, or by the mark an earlier one, has switched the lock on or tried to, and
  /// has not switched it off since. It is nodo's then, and a lock that is off may still come on.
  bool owesRelease = false;
  bool isMarked = false;  ///< a mark for those who come later lies on the disk

  bool operator==(const LockLook&) const = default;
};

/// The timer as the state had it when it was last read.
struct KnownTimer {
  std::optional<Date> end;  ///< absent: none runs

  bool operator==(const KnownTimer&) const = default;
};

/// By whose wish the timer ended.
enum class TimerEnding { stop, repair };

/// Why the lock is released outside of a pass.
enum class ReleaseCause { stop, repair, daemonStopping, unconfirmed };

/// What the state file has to be told before anything else is done with it.
struct StateAmendment {
  std::optional<bool> ownsLock;  ///< absent: as it says
  Seconds clockStep{0};          ///< by how much the civil clock stepped, and its instants with it
  std::optional<TimerEnding> ending;
  /// Whether it has to be written though nothing in it changes: what cannot be recorded must not be
  /// done.
  bool mustBeWritten = false;

  bool operator==(const StateAmendment&) const = default;
};

// ---- what happens

enum class Occasion {
  started,       ///< nothing was done yet, and nobody but the mark is to be believed
  woken,         ///< the daemon's timer, or news of the machine
  resumed,       ///< the machine slept
  passAsked,     ///< these four: a request
  timerAsked,    ///
  stopAsked,     ///
  repairAsked,   ///
  terminating,   ///< this process ends
  amended,       ///< the state holds what it had to be told
  releaseTried,  ///< the lock was released, or not: the look says so
};

/// The state as it is stored.
struct StateFacts {
  std::optional<Date> timerEnd;
  bool ownsLock = false;

  bool operator==(const StateFacts&) const = default;
};

/// What a pass that went through has found.
struct PassVerdict {
  bool isWanted = false;  ///< whether the lock is to be on
  /// When something can end by itself; absent when nothing can.
  std::optional<Date> deadline;
  bool isDueNow = false;    ///< whether that has come, release grace aside
  bool needsSleep = false;  ///< with the lid closed on battery nobody else puts it to sleep
  bool wasReleaseRefused = false;
  bool mayEndUnnoticed = false;  ///< what forbids the lock: not every system tells of its end

  bool operator==(const PassVerdict&) const = default;
};

/// A pass is over.
struct PassOutcome {
  bool isAmended = false;              ///< the state holds what it had to be told
  bool isTimerSet = false;             ///< and the timer that was asked for
  bool askedForSleep = false;          ///< whether that was granted or not
  std::optional<StateFacts> state;     ///< absent: it cannot be read
  std::optional<PassVerdict> verdict;  ///< absent: the pass failed

  bool operator==(const PassOutcome&) const = default;
};

/// Sleep was asked for, or was found not to be needed: the lid is open, or there is mains.
enum class SleepAnswer { notNeeded, asked };

struct LockEvent {
  LockLook look;
  std::variant<Occasion, PassOutcome, SleepAnswer> what;
  /// Of `started` only: absent when the state cannot be read.
  std::optional<KnownTimer> timer = std::nullopt;
};

// ---- what is to be done

/// To tell the state file what it has to be told. Then `Occasion::amended`, or nothing on failure.
struct AmendState {
  StateAmendment amendment;

  bool operator==(const AmendState&) const = default;
};

/// The same, what was asked for, and a pass. Then PassOutcome.
struct MakePass {
  StateAmendment amendment;

  bool operator==(const MakePass&) const = default;
};

/// To release the lock without a pass. Then `Occasion::releaseTried`.
struct ReleaseLock {
  ReleaseCause cause;

  bool operator==(const ReleaseLock&) const = default;
};

/// To put the machine to sleep if its lid is closed on battery. Then SleepAnswer.
struct AskForSleep {
  bool operator==(const AskForSleep&) const = default;
};

/// To remove the mark: there is nothing left that a later process would have to make up for.
struct ForgetMark {
  bool operator==(const ForgetMark&) const = default;
};

/// To write a line to the log.
struct Say {
  std::string line;

  bool operator==(const Say&) const = default;
};

using LockEffect = std::variant<AmendState, MakePass, ReleaseLock, AskForSleep, ForgetMark, Say>;

// ---- the life

/// Where the lock is in its life. docs/architecture.md shows them all with what leads from one to
/// the others.
enum class LockPhase {
  resting,  ///< off, and nothing wants it
  vetoed,  ///< a timer runs, and safety forbids the lock: the machine's news, or a look, may end it
  wanted,  ///< to be on, and it is not: tried every minute
  held,    ///< on, for a reason that the last pass confirmed
  unconfirmed,  ///< on, passes fail, and there is patience left
  releasing,    ///< to go, and it does not, or may come on: tried every minute
  sleepDue,     ///< gone with the lid closed on battery: sleep is asked for every minute
  yielded,      ///< somebody else switches it off again and again: theirs until the next request
  foreign,      ///< on, and not nodo's
};

template <>
struct EnumTexts<LockPhase> {
  static constexpr std::array cases{
      EnumText{LockPhase::resting, "resting"},         EnumText{LockPhase::vetoed, "vetoed"},
      EnumText{LockPhase::wanted, "wanted"},           EnumText{LockPhase::held, "held"},
      EnumText{LockPhase::unconfirmed, "unconfirmed"}, EnumText{LockPhase::releasing, "releasing"},
      EnumText{LockPhase::sleepDue, "sleep due"},      EnumText{LockPhase::yielded, "yielded"},
      EnumText{LockPhase::foreign, "foreign"}};
};

/// All that the daemon knows of the lock: a value, from which with each event the next one follows
/// and what is to be done.
struct LockLife {
  /// How long a lock may stand while passes fail: long enough for a second and a third attempt.
  static constexpr Seconds patience{120};
  /// How often the lock is looked after while it is held or wanted, and what failed is tried again.
  static constexpr Seconds pollInterval{60};
  /// Time services slew a clock that is wrong by less; more is a step.
  static constexpr Seconds clockTolerance{5};
  /// Whoever switches the lock off so often within this time means it.
  static constexpr std::size_t lossesUntilYielding = 3;
  static constexpr Seconds lossWindow{600};

  LockLook look;  ///< of the last event
  // By the state when it was last read.
  std::optional<KnownTimer> timer;  ///< absent: it never was
  bool stateOwnsLock = false;
  // By the last pass that went through.
  bool isWanted = false;
  std::optional<Seconds> deadline;  ///< by the machine's clock
  bool wasDueNow = false;
  bool mayVetoEndUnnoticed = false;
  // Pending.
  bool isFailing = false;
  std::optional<TimerEnding> ending;  ///< a wish that the lock or the state has not followed yet
  Seconds clockStep{0};               ///< that the state's instants have not followed yet
  bool mustWriteFirst = false;
  bool mustGo = false;        ///< it was to be switched off, nodo's or not, and does not go
  bool wentByItself = false;  ///< the lock, since the last pass that went through
  bool isSleepDue = false;
  bool hasYielded = false;
  std::vector<Seconds> losses;  ///< by the machine's clock; within the window
  Seconds sleepAskedAt{0};      ///< likewise
  Seconds attemptedAt{0};       ///< likewise: the last pass, or the start
  Seconds confirmedAt{0};       ///< likewise: the last pass that went through, or the start

  /// A life that begins at `start`.
  static LockLife beginning(const LockLook& start);

  LockPhase phase() const;

  /// Whether the lock is on, as far as is known, and nodo has to see to it that it goes. One that
  /// nothing proves to be nodo's is somebody else's.
  bool holdsLock() const;

  /// Until when something has to happen though nobody asks, by the machine's clock; absent when
  /// nothing can change by itself.
  std::optional<Seconds> nextWake() const;

  /// Whether the process may end with nobody looking after the lock.
  bool isOver() const;

  /// What the state file does not know yet at `now`.
  StateAmendment amendment(const Moment& now) const;

  bool operator==(const LockLife&) const = default;
};

struct LockStep {
  LockLife life;
  std::vector<LockEffect> effects;  ///< in their order

  bool operator==(const LockStep&) const = default;
};

/// What follows from an event. Pure; every phase answers every event.
LockStep follow(LockLife life, const LockEvent& event);

}  // namespace nodo
