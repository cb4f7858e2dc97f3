#include <algorithm>
#include <stdexcept>
#include <utility>

#include <tests/daemon/LockWorld.h>

namespace nodo::test {
namespace {

// A step of the daemon's work that cannot be done.
struct Failure {};

constexpr int longestTimer = 12 * 3600;

}  // namespace

const std::array<const char*, letterCount> letterNames{"wake",
                                                       "half a minute",
                                                       "timer asked",
                                                       "stop asked",
                                                       "repair asked",
                                                       "pass asked",
                                                       "tool works",
                                                       "tool refuses",
                                                       "tool hangs",
                                                       "tool is late",
                                                       "late switch",
                                                       "lock readable?",
                                                       "state readable?",
                                                       "state writable?",
                                                       "somebody switches on",
                                                       "somebody off",
                                                       "lid",
                                                       "power source",
                                                       "charge",
                                                       "resume",
                                                       "clock back",
                                                       "clock ahead",
                                                       "kill",
                                                       "terminate"};

/// The daemon's part: performs what follows on the world, as the keeper of the lock and the
/// controller do.
class LockWorld::Daemon {
 public:
  Daemon(LockWorld& world, const FollowRule& rule) : world_(world), rule_(rule) {}

  void start() {
    world_.reading = world_.isLasting ? LockReading::unknown : LockReading::off;
    world_.owesRelease = world_.isMarked;
    world_.life = LockLife::beginning(look());
    askMachine();
    std::optional<KnownTimer> timer;
    if (world_.isReadable) {
      timer = KnownTimer{dateOf(world_.timerEnd)};
    }
    follow({.look = look(), .what = Occasion::started, .timer = timer});
    happen(Occasion::woken);
  }

  void happen(Occasion occasion) {
    occasion_ = occasion;
    if (occasion != Occasion::terminating) {
      askMachine();
    }
    follow({.look = look(), .what = occasion});
  }

 private:
  static std::optional<Date> dateOf(std::optional<int> seconds) {
    return seconds ? std::optional(dateFromSeconds(*seconds)) : std::nullopt;
  }

  LockLook look() const {
    return {.at = world_.moment(),
            .lock = world_.reading,
            .owesRelease = world_.owesRelease,
            .isMarked = world_.isMarked};
  }

  void askMachine() {
    if (world_.isLockReadable) {
      world_.reading = world_.isLockOn ? LockReading::on : LockReading::off;
      world_.owesRelease = world_.owesRelease && (world_.isLockOn || world_.isLasting);
    }
  }

  void follow(const LockEvent& event) {
    LockStep step = rule_(world_.life, event);
    world_.life = std::move(step.life);
    for (const LockEffect& effect : step.effects) {
      std::visit([this](const auto& wanted) { perform(wanted); }, effect);
    }
  }

  void perform(const AmendState& effect) {
    try {
      amend(effect.amendment);
    } catch (const Failure&) {
      return;
    }
    follow({.look = look(), .what = Occasion::amended});
  }

  void perform(const MakePass& effect) {
    PassOutcome outcome;
    try {
      amend(effect.amendment);
      outcome.isAmended = true;
      outcome.isTimerSet = occasion_ == Occasion::timerAsked;
      wasReleaseRefused_ = false;
      if (occasion_ == Occasion::repairAsked) {
        repair();
      }
      outcome.verdict = reconcile(outcome.askedForSleep);
      outcome.verdict->wasReleaseRefused = wasReleaseRefused_;
      world_.confirmedAt = world_.running;
    } catch (const Failure&) {
    }
    if (world_.isReadable) {
      outcome.state = StateFacts{dateOf(world_.timerEnd), world_.ownsLock};
    }
    follow({.look = look(), .what = outcome});
  }

  void perform(const ReleaseLock& /*effect*/) {
    try {
      if (switchLock(false) && world_.isReadable && world_.isWritable) {
        world_.ownsLock = false;
      }
    } catch (const Failure&) {
    }
    follow({.look = look(), .what = Occasion::releaseTried});
  }

  void perform(const AskForSleep& /*effect*/) {
    SleepAnswer answer = SleepAnswer::notNeeded;
    if (world_.isLidClosedOnBattery()) {
      requestSleep();
      answer = SleepAnswer::asked;
    }
    follow({.look = look(), .what = answer});
  }

  void perform(const ForgetMark& /*effect*/) { world_.isMarked = false; }

  void perform(const Say& /*effect*/) {}

  void requestSleep() {
    ++world_.sleepRequests;
    if (world_.hasSlept) {
      world_.fault = "a machine that slept already is put to sleep again";
    }
  }

  void save() const {
    if (!world_.isWritable) {
      throw Failure();
    }
  }

  void amend(const StateAmendment& amendment) {
    if (!world_.isReadable) {
      throw Failure();
    }
    std::optional<int> end = world_.timerEnd;
    if (end) {
      end = std::min(*end + wholeSecondsOf(amendment.clockStep), world_.civil + longestTimer);
    }
    if (amendment.ending) {
      end.reset();
      if (world_.isTimerRunning()) {
        world_.fault = "a timer is ended that nobody stopped";
      }
    }
    if (occasion_ == Occasion::timerAsked) {
      end = world_.civil + timerLength;
    }
    const bool owns = amendment.ownsLock.value_or(world_.ownsLock);
    if (end != world_.timerEnd || owns != world_.ownsLock || amendment.mustBeWritten) {
      save();
    }
    world_.showsUse = world_.showsUse || occasion_ == Occasion::timerAsked;
    world_.timerEnd = end;
    world_.ownsLock = owns;
    world_.believeFile();
  }

  void repair() {
    if (world_.ownsLock || world_.reading == LockReading::on) {
      switchLock(false);
    }
    save();
    world_.timerEnd.reset();
    world_.ownsLock = false;
  }

  PassVerdict reconcile(bool& askedForSleep) {
    const bool isRunning = world_.timerEnd && *world_.timerEnd > world_.civil;
    const bool isExpired = world_.timerEnd && !isRunning;
    const bool isWanted = isRunning && !world_.isVetoed();
    const bool isLive = world_.reading == LockReading::on && occasion_ != Occasion::repairAsked;
    bool owns = world_.ownsLock;
    bool isReleased = false;
    if (isWanted && !owns) {
      owns = switchLock(true);
    } else if (!isWanted && (owns || (isLive && world_.showsUse))) {
      isReleased = switchLock(false);
      owns = owns && !isReleased;
    }
    if (isExpired || owns != world_.ownsLock) {
      save();
    }
    world_.ownsLock = owns;
    if (isExpired) {
      world_.timerEnd.reset();
      world_.believeFile();
    }
    if (isReleased && world_.isLidClosedOnBattery()) {
      requestSleep();
      askedForSleep = true;
    }
    PassVerdict verdict{.isWanted = isWanted, .needsSleep = world_.isLidClosedOnBattery()};
    if (owns || isWanted) {
      verdict.deadline = dateFromSeconds(world_.timerEnd.value_or(world_.civil) + 1);
      verdict.isDueNow = !world_.timerEnd;
    }
    return verdict;
  }

  // Whether that succeeded.
  bool switchLock(bool on) {
    if (!on && world_.isLockOn && !world_.isLockOurs && !world_.ownsLock && !world_.isMarked &&
        !world_.showsUse && !world_.wasRepairAsked) {
      world_.fault = "a lock is switched off that is not nodo's";
    }
    world_.isMarked = world_.isMarked || world_.isLasting;
    world_.owesRelease = world_.owesRelease || (on && world_.isLasting);
    if (world_.tool == Tool::hangs) {
      throw Failure();
    }
    if (world_.tool == Tool::isLate) {
      world_.lateSwitch = on;
    }
    if (world_.tool != Tool::works) {
      wasReleaseRefused_ = wasReleaseRefused_ || !on;
      return false;
    }
    world_.lateSwitch.reset();
    world_.switchLock(on, true);
    world_.reading = on ? LockReading::on : LockReading::off;
    world_.owesRelease = on;
    return true;
  }

  LockWorld& world_;
  const FollowRule& rule_;
  Occasion occasion_ = Occasion::started;
  bool wasReleaseRefused_ = false;
};

LockWorld LockWorld::beginning(bool lasting, const FollowRule& rule) {
  LockWorld world;
  world.isLasting = lasting;
  Daemon(world, rule).start();
  return world;
}

Moment LockWorld::moment() const {
  return {.civil = dateFromSeconds(civil), .running = Seconds(running)};
}

void LockWorld::pass(int seconds) {
  civil += seconds;
  running += seconds;
}

// What is on the disk is the truth: nobody knows any better.
void LockWorld::believeFile() {
  trueEnd = timerEnd ? std::optional(running + *timerEnd - civil) : std::nullopt;
}

void LockWorld::switchLock(bool on, bool byUs) {
  if (byUs && !on) {
    isSleepOwed = isSleepOwed || (isLockOn && isLidClosedOnBattery());
    hasSlept = false;
  }
  isSleepOwed = isSleepOwed && !on;
  hasSlept = hasSlept && !on;
  isLockOn = on;
  isLockOurs = on && (byUs || isLockOurs);
}

bool LockWorld::isPossible(Letter letter) const {
  const std::optional<Seconds> wake = life.nextWake();
  switch (letter) {
    case Letter::wake:
      return wake.has_value();
    case Letter::halfAMinute:
      return !wake || *wake > Seconds(running + 30);
    case Letter::toolWorks:
      return tool != Tool::works;
    case Letter::toolRefuses:
      return tool != Tool::refuses;
    case Letter::toolHangs:
      return tool != Tool::hangs;
    case Letter::toolIsLate:
      return isLasting && tool != Tool::isLate;
    case Letter::lateSwitch:
      return lateSwitch.has_value();
    case Letter::somebodySwitchesOn:
      return isLasting && !isLockOn;
    case Letter::somebodySwitchesOff:
      return isLockOn;
    case Letter::resume:
      return isSleepOwed;
    case Letter::clockBack:
      return clockSteps >= 0;
    case Letter::clockAhead:
      return clockSteps <= 0;
    default:
      return true;
  }
}

void LockWorld::apply(Letter letter, const FollowRule& rule) {
  Daemon daemon(*this, rule);
  wasRepairAsked = letter == Letter::repairAsked || (wasRepairAsked && isLockOn);
  switch (letter) {
    case Letter::wake:
      pass(std::max(wholeSecondsOf(life.nextWake().value() - Seconds(running)), 0));
      daemon.happen(Occasion::woken);
      if (life.nextWake() && *life.nextWake() <= Seconds(running)) {
        fault = "it wakes without end";
      }
      break;
    case Letter::halfAMinute:
      pass(30);
      break;
    case Letter::timerAsked:
      daemon.happen(Occasion::timerAsked);
      break;
    case Letter::stopAsked:
      trueEnd.reset();
      daemon.happen(Occasion::stopAsked);
      break;
    case Letter::repairAsked:
      trueEnd.reset();
      daemon.happen(Occasion::repairAsked);
      break;
    case Letter::passAsked:
      daemon.happen(Occasion::passAsked);
      break;
    case Letter::toolWorks:
      tool = Tool::works;
      break;
    case Letter::toolRefuses:
      tool = Tool::refuses;
      break;
    case Letter::toolHangs:
      tool = Tool::hangs;
      break;
    case Letter::toolIsLate:
      tool = Tool::isLate;
      break;
    case Letter::lateSwitch: {
      const bool on = *std::exchange(lateSwitch, std::nullopt);
      switchLock(on, on || isLockOurs || wasRepairAsked);
      break;
    }
    case Letter::lockReadableOrNot:
      isLockReadable = !isLockReadable;
      break;
    case Letter::stateReadableOrNot:
      isReadable = !isReadable;
      break;
    case Letter::stateWritableOrNot:
      isWritable = !isWritable;
      break;
    case Letter::somebodySwitchesOn:
      switchLock(true, false);
      break;
    case Letter::somebodySwitchesOff:
      std::erase_if(losses, [this](int loss) { return loss + 600 <= running; });
      losses.push_back(running);
      switchLock(false, false);
      break;
    case Letter::lid:
      isLidClosed = !isLidClosed;
      isSleepOwed = isSleepOwed && isLidClosed;
      daemon.happen(Occasion::woken);
      break;
    case Letter::powerSource:
      isOnBattery = !isOnBattery;
      isSleepOwed = isSleepOwed && isOnBattery;
      daemon.happen(Occasion::woken);
      break;
    case Letter::charge:
      isChargeLow = !isChargeLow;
      daemon.happen(Occasion::woken);
      break;
    case Letter::resume:
      isSleepOwed = false;
      hasSlept = isLockReadable;  // else nobody knows that the lock was off by then
      daemon.happen(Occasion::resumed);
      break;
    case Letter::clockBack:
    case Letter::clockAhead: {
      const int step = letter == Letter::clockBack ? -1 : 1;
      civil += step * day;
      clockSteps += step;
      break;
    }
    case Letter::terminate:
      daemon.happen(Occasion::terminating);
      if (life.isOver() && isLockOn && isLockOurs && isLasting) {
        fault = "it ended as if nothing were left to do, with the lock on";
      }
      [[fallthrough]];
    case Letter::kill:
      if (!isLasting) {
        switchLock(false, false);
        isSleepOwed = false;
      }
      losses.clear();
      confirmedAt.reset();
      believeFile();
      daemon.start();
      break;
  }
}

}  // namespace nodo::test
