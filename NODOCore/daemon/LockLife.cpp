#include <NODOCore/daemon/LockLife.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace nodo {
namespace {

bool isTimerOver(const LockLife& life) {
  return life.timer && (!life.timer->end || *life.timer->end <= life.look.at.civil);
}

bool isTimerRunning(const LockLife& life) {
  return life.timer && !isTimerOver(life);
}

bool isPatienceLeft(const LockLife& life) {
  return life.look.at.running < life.confirmedAt + LockLife::patience;
}

// Whether the lock may go on standing although a pass has failed.
bool mayStand(const LockLife& life) {
  return isPatienceLeft(life) && !isTimerOver(life) && !life.ending && !life.mustGo;
}

Seconds onMachineClock(const LockLife& life, Date date) {
  return life.look.at.running + (date - life.look.at.civil);
}

std::optional<Seconds> earlier(std::optional<Seconds> one, std::optional<Seconds> other) {
  return one && other ? std::min(one, other) : (one ? one : other);
}

// By how much the civil clock was set between two moments. What goes astray more slowly is
// followed.
Seconds clockStepBetween(const Moment& before, const Moment& now) {
  const Seconds step = (now.civil - before.civil) - (now.running - before.running);
  return std::abs(step.count()) > LockLife::clockTolerance.count() ? step : Seconds(0);
}

// ---- the parts of a step

// What an event tells before it is looked at what it is.
void see(LockStep& step, const LockLook& look) {
  LockLife& life = step.life;
  const Seconds clockStep = clockStepBetween(life.look.at, look.at);
  life.clockStep += clockStep;
  if (life.timer && life.timer->end) {
    *life.timer->end += clockStep;
  }
  life.look = look;
  life.mustGo = life.mustGo && look.lock != LockReading::off;
}

void makePass(LockStep& step) {
  step.life.attemptedAt = step.life.look.at.running;
  step.effects.emplace_back(MakePass{step.life.amendment(step.life.look.at)});
}

void release(LockStep& step, ReleaseCause cause) {
  step.effects.emplace_back(ReleaseLock{cause});
}

void noteLoss(LockStep& step) {
  LockLife& life = step.life;
  const Seconds now = life.look.at.running;
  std::erase_if(life.losses, [now](Seconds loss) { return loss + LockLife::lossWindow <= now; });
  life.losses.push_back(now);
  life.hasYielded = life.losses.size() >= LockLife::lossesUntilYielding;
  step.effects.emplace_back(
      Say{life.hasYielded ? "somebody else goes on switching the sleep lock off; it is taken again "
                            "at the next request"
                          : "somebody else has switched the sleep lock off"});
}

// Nothing has been done yet, and only the mark is believed: whatever else is needed may fail. A
// lock that was left behind goes first, unless a timer still runs for it.
void start(LockStep& step, const std::optional<KnownTimer>& timer) {
  if (step.life.look.owesRelease && !(timer && timer->end > step.life.look.at.civil)) {
    release(step, ReleaseCause::unconfirmed);
  }
}

void wake(LockStep& step) {
  const LockLife& life = step.life;
  if (life.phase() != LockPhase::yielded) {
    makePass(step);
  } else if (life.stateOwnsLock) {
    step.effects.emplace_back(AmendState{life.amendment(life.look.at)});
  }
}

void serve(LockStep& step) {
  step.life.hasYielded = false;
  step.life.losses.clear();
  makePass(step);
}

void terminate(LockStep& step) {
  if (step.life.holdsLock() || step.life.look.owesRelease) {
    release(step, ReleaseCause::daemonStopping);
  }
}

// The lock has gone outside of a pass, or not.
void seeRelease(LockStep& step) {
  const LockLook& look = step.life.look;
  if (look.lock == LockReading::off && !look.owesRelease) {
    step.effects.emplace_back(AskForSleep{});
  }
}

void happen(LockStep& step, Occasion occasion, const std::optional<KnownTimer>& timer) {
  switch (occasion) {
    case Occasion::started:
      start(step, timer);
      break;
    case Occasion::resumed:
      step.life.isSleepDue = false;
      step.life.wentByItself = false;
      wake(step);
      break;
    case Occasion::woken:
      wake(step);
      break;
    case Occasion::passAsked:
    case Occasion::timerAsked:
      serve(step);
      break;
    case Occasion::stopAsked:
      step.life.ending = TimerEnding::stop;
      serve(step);
      break;
    case Occasion::repairAsked:
      step.life.ending = TimerEnding::repair;
      step.life.mustGo = step.life.look.lock != LockReading::off;
      serve(step);
      break;
    case Occasion::terminating:
      terminate(step);
      break;
    case Occasion::amended:
      step.life.clockStep = Seconds(0);
      step.life.mustWriteFirst = false;
      step.life.stateOwnsLock = false;
      break;
    case Occasion::releaseTried:
      seeRelease(step);
      break;
  }
}

void confirm(LockStep& step, const PassVerdict& verdict) {
  LockLife& life = step.life;
  const Seconds now = life.look.at.running;
  life.mustGo = life.mustGo && !verdict.isWanted;
  life.ending.reset();
  life.isFailing = false;
  life.confirmedAt = now;
  life.isWanted = verdict.isWanted;
  life.mayVetoEndUnnoticed = verdict.mayEndUnnoticed;
  life.deadline =
      verdict.deadline ? std::optional(onMachineClock(life, *verdict.deadline)) : std::nullopt;
  // What goes on being due is looked at again early once, and then as often as anything else.
  if (std::exchange(life.wasDueNow, verdict.isDueNow) && verdict.isDueNow) {
    life.deadline.reset();
  }
  life.isSleepDue = life.isSleepDue && verdict.needsSleep && life.look.lock == LockReading::off;
  // It is off, and a switch that was refused may still come to pass; or nobody can tell.
  if (!verdict.isWanted && life.look.lock != LockReading::on && life.look.owesRelease &&
      !verdict.wasReleaseRefused) {
    release(step, ReleaseCause::unconfirmed);
  }
}

ReleaseCause causeOfFailedPass(const LockLife& life) {
  if (!life.ending) {
    return ReleaseCause::unconfirmed;
  }
  return *life.ending == TimerEnding::stop ? ReleaseCause::stop : ReleaseCause::repair;
}

void fail(LockStep& step, bool wasReleased) {
  LockLife& life = step.life;
  life.isFailing = true;
  if (wasReleased) {
    life.mustWriteFirst = true;
  } else if (life.holdsLock() && !mayStand(life)) {
    life.mustWriteFirst = true;
    release(step, causeOfFailedPass(life));
  }
}

// What the pass found on the disk, and left there.
void seeState(LockLife& life, const PassOutcome& outcome) {
  if (outcome.isAmended) {
    life.clockStep = Seconds(0);
    life.mustWriteFirst = false;
  }
  if (outcome.isTimerSet) {
    life.ending.reset();
  }
  if (outcome.state) {
    life.timer = KnownTimer{outcome.state->timerEnd};
    if (life.timer->end) {
      *life.timer->end += life.clockStep;
    }
    life.stateOwnsLock = outcome.state->ownsLock;
  }
}

// With the lid closed on battery nobody else puts a machine to sleep whose lock has gone: asks for
// it when that happened, and again as long as it does not sleep. Where a pass went through it is
// known whether that is needed.
void seeToSleep(LockStep& step, const PassOutcome& outcome, bool wasReleased) {
  LockLife& life = step.life;
  const Seconds now = life.look.at.running;
  const bool isWanted = outcome.verdict ? outcome.verdict->isWanted : !isTimerOver(life);
  const bool hasGone = wasReleased || (life.wentByItself && !isWanted);
  const bool mayBeNeeded = !outcome.verdict || outcome.verdict->needsSleep;
  const bool isNewlyDue = hasGone && !outcome.askedForSleep && mayBeNeeded;
  const bool isDueAgain = life.isSleepDue && !(outcome.verdict && isWanted) &&
                          life.sleepAskedAt + LockLife::pollInterval <= now;
  life.wentByItself = life.wentByItself && !outcome.verdict && isWanted;
  if (isNewlyDue || isDueAgain) {
    step.effects.emplace_back(AskForSleep{});
  }
}

void endPass(LockStep& step, const PassOutcome& outcome, const LockLook& before) {
  LockLife& life = step.life;
  const bool wasReleased = (before.lock != LockReading::off || before.owesRelease) &&
                           life.look.lock == LockReading::off && !life.look.owesRelease;
  seeState(life, outcome);
  if (outcome.askedForSleep) {
    life.isSleepDue = true;
    life.sleepAskedAt = life.look.at.running;
  }
  if (outcome.verdict) {
    confirm(step, *outcome.verdict);
  } else {
    fail(step, wasReleased);
  }
  seeToSleep(step, outcome, wasReleased);
}

void hearAboutSleep(LockStep& step, SleepAnswer answer) {
  step.life.isSleepDue = answer == SleepAnswer::asked;
  step.life.sleepAskedAt = step.life.look.at.running;
}

}  // namespace

LockLife LockLife::beginning(const LockLook& start) {
  LockLife life;
  life.look = start;
  life.attemptedAt = start.at.running;
  life.confirmedAt = start.at.running;
  return life;
}

LockPhase LockLife::phase() const {
  if (holdsLock()) {
    if (isFailing) {
      return mayStand(*this) ? LockPhase::unconfirmed : LockPhase::releasing;
    }
    return isWanted ? LockPhase::held : LockPhase::releasing;
  }
  const bool isMissing = isFailing ? !isTimerOver(*this) : isWanted;
  if (look.owesRelease && !isMissing) {
    return LockPhase::releasing;
  }
  if (isSleepDue) {
    return LockPhase::sleepDue;
  }
  if (hasYielded && isTimerRunning(*this)) {
    return LockPhase::yielded;
  }
  if (isMissing) {
    return LockPhase::wanted;
  }
  if (look.lock == LockReading::on) {
    return LockPhase::foreign;
  }
  return isTimerRunning(*this) ? LockPhase::vetoed : LockPhase::resting;
}

std::optional<Seconds> LockLife::nextWake() const {
  const Seconds poll = attemptedAt + pollInterval;
  const std::optional<Seconds> timerEnd =
      timer && timer->end ? std::optional(onMachineClock(*this, *timer->end)) : std::nullopt;
  switch (phase()) {
    case LockPhase::held:
    case LockPhase::wanted:
    case LockPhase::releasing:
    case LockPhase::sleepDue:
      return isFailing ? poll : earlier(deadline, poll);
    case LockPhase::unconfirmed:
      return earlier(timerEnd, std::min(poll, confirmedAt + patience));
    case LockPhase::yielded:
      return timerEnd;
    case LockPhase::vetoed:
      return mayVetoEndUnnoticed ? std::optional(poll) : std::nullopt;
    case LockPhase::resting:
    case LockPhase::foreign:
      break;
  }
  return std::nullopt;
}

bool LockLife::holdsLock() const {
  return look.lock != LockReading::off && (look.owesRelease || mustGo || stateOwnsLock);
}

bool LockLife::isOver() const {
  return !holdsLock() && !look.owesRelease;
}

StateAmendment LockLife::amendment(const Moment& now) const {
  StateAmendment amendment{.clockStep = clockStep + clockStepBetween(look.at, now),
                           .ending = ending,
                           .mustBeWritten = mustWriteFirst};
  const bool isMarkAllThatIsKnown =
      look.lock == LockReading::unknown && look.owesRelease && !mustGo;
  if (look.lock == LockReading::off || isMarkAllThatIsKnown) {
    // A lock of which nothing but the mark is known is switched once more, on or off.
    amendment.ownsLock = false;
  } else if (look.owesRelease || mustGo) {
    amendment.ownsLock = true;
  }
  return amendment;
}

LockStep follow(LockLife life, const LockEvent& event) {
  const LockLook before = life.look;
  const bool answeredBefore = life.holdsLock() && (before.lock == LockReading::on || life.mustGo);
  const bool wasToStay = life.look.owesRelease && life.phase() != LockPhase::releasing;
  LockStep step{std::move(life), {}};
  see(step, event.look);
  if (const auto* occasion = std::get_if<Occasion>(&event.what)) {
    const bool isGone = answeredBefore && event.look.lock == LockReading::off &&
                        *occasion != Occasion::started && *occasion != Occasion::releaseTried;
    step.life.wentByItself = step.life.wentByItself || isGone;
    if (isGone && wasToStay) {
      noteLoss(step);
    }
    happen(step, *occasion, event.timer);
  } else if (const auto* outcome = std::get_if<PassOutcome>(&event.what)) {
    endPass(step, *outcome, before);
  } else {
    hearAboutSleep(step, std::get<SleepAnswer>(event.what));
  }
  const bool isUndone = step.life.look.lock == LockReading::off && !step.life.look.owesRelease;
  if (event.look.isMarked && isUndone && !step.life.isSleepDue && step.effects.empty()) {
    step.effects.emplace_back(ForgetMark{});
  }
  return step;
}

}  // namespace nodo
