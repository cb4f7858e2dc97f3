#include <algorithm>
#include <initializer_list>

#include <tests/daemon/LockWorld.h>

namespace nodo::test {

std::string LockWorld::complaint(const FollowRule& rule) const {
  std::string complaint = fault;
  if (complaint.empty()) {
    complaint = complaintNow();
  }
  if (complaint.empty()) {
    complaint = complaintOnceToolsWork(rule);
  }
  return complaint.empty() ? complaintOnceAllWorks(rule) : complaint;
}

std::string LockWorld::complaintNow() const {
  const LockPhase phase = life.phase();
  const std::optional<Seconds> next = life.nextWake();
  const bool looksSoon = next && *next <= Seconds(running + 60);
  const bool isReasonKnown =
      isTimerRunning() && !isVetoed() && confirmedAt && running - *confirmedAt <= 120;
  if (isLockOn && isLockOurs && !isReasonKnown && !looksSoon) {
    return "the lock is on without a reason, and nothing is about to release it";
  }
  const bool hasYielded = phase == LockPhase::yielded && losses.size() >= 3;
  if (isTimerRunning() && !isVetoed() && !isLockOn && !looksSoon && !hasYielded) {
    return "a timer runs, the lock is off, and nothing is about to take it";
  }
  if (isSleepOwed && !isLockOn && !isTimerRunning() && !looksSoon) {
    return "sleep is due, and nothing is about to ask for it";
  }
  const bool isAtRest =
      phase == LockPhase::resting || phase == LockPhase::vetoed || phase == LockPhase::foreign;
  if (!isAtRest && !next) {
    return "nothing wakes a lock that is " + std::string(rawValue(phase));
  }
  return "";
}

// The state may stay out of reach: then there is no reason any more.
std::string LockWorld::complaintOnceToolsWork(const FollowRule& rule) const {
  LockWorld later = *this;
  later.tool = Tool::works;
  later.lateSwitch.reset();
  later.isLockReadable = true;
  while (later.running <= running + 180 && later.isPossible(Letter::wake)) {
    later.apply(Letter::wake, rule);
  }
  const bool isConfirmed = later.confirmedAt && later.running - *later.confirmedAt <= 120;
  return later.isLockOn && later.isLockOurs && !isConfirmed
             ? "the lock stays on though no pass confirms its reason"
             : later.fault;
}

std::string LockWorld::complaintOnceAllWorks(const FollowRule& rule) const {
  LockWorld later = *this;
  later.tool = Tool::works;
  later.lateSwitch.reset();
  later.isLockReadable = true;
  later.isReadable = true;
  later.isWritable = true;
  while (later.running <= running + 60 && later.isPossible(Letter::wake)) {
    later.apply(Letter::wake, rule);
  }
  if (!later.fault.empty()) {
    return later.fault;
  }
  const bool isWanted = later.isTimerRunning() && !later.isVetoed();
  const bool hasYielded = losses.size() >= 3 && later.life.phase() == LockPhase::yielded;
  if (isWanted && !later.isLockOn && !hasYielded) {
    return "a timer runs, everything works, and the lock stays off";
  }
  if (!isWanted && later.isLockOn && later.isLockOurs) {
    return "no timer runs, everything works, and the lock stays on";
  }
  if (later.isSleepOwed && !isWanted && later.sleepRequests == sleepRequests) {
    return "sleep is due, everything works, and nobody asks for it";
  }
  return "";
}

std::string LockWorld::key() const {
  std::string key;
  const auto add = [&key](int value) { key.append(reinterpret_cast<const char*>(&value), 4); };
  const auto addAge = [&](Seconds instant, int oldest) {
    add(std::min(running - wholeSecondsOf(instant), oldest));
  };
  const auto addBits = [&](std::initializer_list<bool> bits) {
    int sum = 0;
    for (const bool bit : bits) {
      sum = 2 * sum + (bit ? 1 : 0);
    }
    add(sum);
  };
  addBits({isLasting, isLockOn, lateSwitch.has_value(), lateSwitch == true, isLockReadable,
           isLidClosed, isOnBattery, isChargeLow, isReadable, isWritable, ownsLock, showsUse,
           isMarked, owesRelease, isLockOurs, isSleepOwed, hasSlept, wasRepairAsked});
  add(static_cast<int>(tool));
  add(clockSteps);
  add(static_cast<int>(reading));
  add(timerEnd ? std::max(*timerEnd - civil, -1) : -2);
  add(trueEnd ? std::max(*trueEnd - running, -1) : -2);
  add(confirmedAt ? std::min(running - *confirmedAt, 121) : -1);
  for (const int loss : losses) {
    add(std::min(running - loss, 600));
  }
  addBits({life.stateOwnsLock, life.isWanted, life.wasDueNow, life.isFailing,
           life.ending.has_value(), life.ending == TimerEnding::stop, life.mustWriteFirst,
           life.mustGo, life.wentByItself, life.isSleepDue, life.hasYielded, life.look.owesRelease,
           life.look.isMarked});
  add(static_cast<int>(life.look.lock));
  add(life.timer
          ? (life.timer->end ? std::max(wholeSecondsOf(*life.timer->end - moment().civil), -1) : -2)
          : -3);
  add(life.deadline ? std::clamp(wholeSecondsOf(*life.deadline) - running, -1, 61) : -2);
  add(wholeSecondsOf(life.clockStep));
  addAge(life.look.at.running, 61);
  add(wholeSecondsOf((life.look.at.civil - moment().civil) -
                     (life.look.at.running - moment().running)));
  addAge(life.attemptedAt, 61);
  addAge(life.confirmedAt, 121);
  addAge(life.sleepAskedAt, 61);
  for (const Seconds loss : life.losses) {
    addAge(loss, 600);
  }
  return key;
}

}  // namespace nodo::test
