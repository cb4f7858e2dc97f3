#include <NODOCore/base/Errors.h>
#include <NODOCore/daemon/LockKeeper.h>

#include <algorithm>
#include <exception>
#include <stdexcept>
#include <utility>

namespace nodo {
namespace {

// A refused request has neither read nor changed anything.
bool isRefusal(const std::exception& error) {
  const auto* known = dynamic_cast<const NODOError*>(&error);
  return known != nullptr && known->errorCase() == NODOError::Case::invalidDuration;
}

bool hasNothingToWaitFor(const StatusReport& report) {
  return report.noRouteGraceRemainingSeconds ? *report.noRouteGraceRemainingSeconds == 0
                                             : !report.state.manualUntil;
}

}  // namespace

LockKeeper::LockKeeper(NODOController controller, SleepLock lock, DaemonLog log, Date now)
    : controller_(std::move(controller)),
      lock_(std::move(lock)),
      operationLog_(std::move(log)),
      attemptedAt_(now),
      confirmedAt_(now) {}

std::string LockKeeper::reasonOf(ReleaseCause cause) {
  const std::string prefix = reason::releasePrefix;
  switch (cause) {
    case ReleaseCause::stop:
      return prefix + reason::userStop;
    case ReleaseCause::repair:
      return prefix + reason::repair;
    case ReleaseCause::daemonStopping:
      return prefix + "daemon_stopping";
    case ReleaseCause::unconfirmed:
      break;
  }
  return prefix + "unconfirmed";
}

template <class Work>
auto LockKeeper::guarded(Date now, const Work& work) {
  try {
    return work();
  } catch (const std::exception& error) {
    if (!isRefusal(error)) {
      fail(now);
    }
    throw;
  }
}

DaemonRunReport LockKeeper::pass(Date now) {
  attemptedAt_ = now;
  return guarded(now, [&] { return reconcile(now); });
}

StatusReport LockKeeper::enableManual(std::int64_t minutes, bool extendOnly,
                                      const std::optional<ActivationRequester>& requester,
                                      Date now) {
  guarded(now, [&] {
    endTimerIfPending(now);
    controller_.enableManual(minutes, now, extendOnly, requester);
  });
  pendingEnding_.reset();
  try {
    return pass(now).status;
  } catch (const std::exception& error) {
    throw std::runtime_error("the timer is set, but the sleep lock does not follow it yet: " +
                             std::string(error.what()));
  }
}

StatusReport LockKeeper::stop(Date now) {
  pendingEnding_ = TimerEnding::stop;
  try {
    return pass(now).status;
  } catch (const std::exception& error) {
    throw std::runtime_error(
        std::string(isHeld() ? "the sleep lock could not be released: "
                             : "the sleep lock is off, but the stop could not be completed: ") +
        error.what());
  }
}

StatusReport LockKeeper::repair(Date now) {
  pendingEnding_ = TimerEnding::repair;
  return guarded(now, [&] {
    DaemonRunReport run = controller_.repair(lock_, lock_.askMachine(), now);
    releaseIsUnrecorded_ = false;
    pendingEnding_.reset();
    confirm(run);
    return run.status;
  });
}

void LockKeeper::shutDown(Date now) noexcept {
  const std::optional<NODOState> state = readableState();
  if ((state && state->ownsSleepDisable) || answersForLock(state)) {
    release(now, ReleaseCause::daemonStopping);
  }
}

std::optional<Date> LockKeeper::nextPass(Date now, Seconds releaseGrace) const {
  const std::optional<Date> due = isFailing_ ? nextAttempt(now) : nextRelease(now, releaseGrace);
  return due ? std::optional(std::min(*due, nextPoll(now))) : std::nullopt;
}

std::optional<SystemSnapshot> LockKeeper::seen() const {
  return last_ && !isFailing_ ? std::optional(last_->snapshot) : std::nullopt;
}

// ---- a pass

DaemonRunReport LockKeeper::reconcile(Date now) {
  const std::optional<bool> live = lock_.askMachine();
  bool isChanged = forgetLostOwnership(live, now);
  isChanged = endTimerIfPending(now) || isChanged;
  DaemonRunReport run = controller_.reconcile(lock_, live, now);
  if (isUnknownToState(run)) {
    rememberOwnership(now);
    isChanged = true;
    run = controller_.reconcile(lock_, live, now);
  }
  run.stateChanged = run.stateChanged || isChanged;
  pendingEnding_.reset();
  confirm(run);
  return run;
}

// Makes up for a stop or a repair, and tells whether there was one. It stays the reason for what
// follows until the lock has followed.
bool LockKeeper::endTimerIfPending(Date now) {
  if (!pendingEnding_) {
    return false;
  }
  controller_.stop(now);
  return true;
}

// The state was replaced behind our back. Nothing in it says that the lock is nodo's, so that the
// controller leaves it alone for ever.
bool LockKeeper::isUnknownToState(const DaemonRunReport& run) const {
  const bool isOurs = lock_.wasTaken() || lock_.diesWithProcess();
  return isOurs && lock_.isHeld() == true && !run.status.state.ownsSleepDisable;
}

void LockKeeper::rememberOwnership(Date now) {
  NODOState state = controller_.store.load();
  state.ownsSleepDisable = true;
  state.updatedAt = now;
  controller_.store.save(state);
}

bool LockKeeper::forgetLostOwnership(std::optional<bool> live, Date now) {
  const bool isLost = lock_.diesWithProcess() && (ownershipIsOfEarlierProcess_ || live == false);
  if (!isLost && !releaseIsUnrecorded_) {
    return false;
  }
  NODOState state = controller_.store.load();
  const bool wasOwned = state.ownsSleepDisable;
  // After a release that could not be recorded the state is written in any case: as long as that
  // fails, the lock must not be taken again only to be let go by the next failure.
  if (wasOwned || releaseIsUnrecorded_) {
    state.ownsSleepDisable = false;
    state.updatedAt = now;
    controller_.store.save(state);
  }
  ownershipIsOfEarlierProcess_ = false;
  releaseIsUnrecorded_ = false;
  return wasOwned;
}

void LockKeeper::confirm(const DaemonRunReport& run) {
  const std::optional<ActivationRequester>& requester = run.status.state.lastRequester;
  for (const LockOperation& operation : lock_.takeOperations()) {
    operationLog_.add(operation, requester ? requester->displayText() : "");
  }
  isEarlyRecheckDone_ = last_ && hasNothingToWaitFor(*last_) && hasNothingToWaitFor(run.status);
  ownershipIsOfEarlierProcess_ = false;
  isFailing_ = false;
  confirmedAt_ = run.generatedAt;
  timer_ = KnownTimer{run.status.state.manualUntil};
  last_ = run.status;
}

// ---- a pass that failed

void LockKeeper::fail(Date now) noexcept {
  isFailing_ = true;
  try {
    const std::optional<NODOState> state = readableState();
    if (state) {
      timer_ = KnownTimer{state->manualUntil};
    }
    bool isReleased = false;
    bool isSleepRequested = false;
    for (const LockOperation& operation : lock_.takeOperations()) {
      operationLog_.add(operation);
      const PowerOperationResult& result = operation.result;
      isReleased |= result.action == PowerOperationAction::enableSleep && result.succeeded();
      isSleepRequested |= result.action == PowerOperationAction::sleepNow;
    }
    if (isReleased) {
      releaseIsUnrecorded_ = true;
      if (!isSleepRequested) {
        sleepIfLidIsClosedOnBattery(now);
      }
    }
    if (!mayStand(now) && answersForLock(state) && release(now, causeOfFailedPass())) {
      sleepIfLidIsClosedOnBattery(now);
    }
  } catch (const std::exception& error) {
    operationLog_.addTrouble(error.what());
  }
}

std::optional<NODOState> LockKeeper::readableState() const noexcept {
  try {
    return controller_.store.load();
  } catch (const std::exception&) {
    return std::nullopt;  // the pass that follows says why
  }
}

// A lock that stands while the state cannot be read counts as ours: better a machine that may sleep
// than one that cannot.
bool LockKeeper::answersForLock(const std::optional<NODOState>& state) const {
  return lock_.isHeld() != false && (lock_.wasTaken() || !state || state->ownsSleepDisable);
}

// Whether the lock may go on standing although a pass has failed.
bool LockKeeper::mayStand(Date now) const {
  const bool wasConfirmedLately = now >= confirmedAt_ && now < confirmedAt_ + patience;
  return wasConfirmedLately && !timerIsOver(now) && !pendingEnding_;
}

LockKeeper::ReleaseCause LockKeeper::causeOfFailedPass() const {
  if (!pendingEnding_) {
    return ReleaseCause::unconfirmed;
  }
  return *pendingEnding_ == TimerEnding::stop ? ReleaseCause::stop : ReleaseCause::repair;
}

bool LockKeeper::timerIsOver(Date now) const {
  return timer_ && (!timer_->end || *timer_->end <= now);
}

bool LockKeeper::release(Date now, ReleaseCause cause) noexcept {
  bool isReleased = false;
  try {
    const LockOperation operation = perform(PowerOperationAction::enableSleep, reasonOf(cause));
    isReleased = operation.result.succeeded();
    releaseIsUnrecorded_ = releaseIsUnrecorded_ || isReleased;
    record(operation, now);
    releaseIsUnrecorded_ = releaseIsUnrecorded_ && !isReleased;
  } catch (const std::exception& error) {
    operationLog_.addTrouble((isReleased ? "the release of the sleep lock cannot be recorded: "
                                         : "the sleep lock cannot be released: ") +
                             std::string(error.what()));
  }
  return isReleased;
}

void LockKeeper::sleepIfLidIsClosedOnBattery(Date now) {
  if (releaseNeedsSleepRequest(lastSnapshot(now))) {
    record(perform(PowerOperationAction::sleepNow, reason::closedLidRelease), now);
  }
}

// An operation outside of a pass.
LockOperation LockKeeper::perform(PowerOperationAction action, const std::string& reason) {
  lock_.announce(reason);
  if (action == PowerOperationAction::sleepNow) {
    lock_.requestSleepNow();
  } else {
    lock_.setSleepDisabled(action == PowerOperationAction::disableSleep);
  }
  LockOperation operation = lock_.takeOperations().back();
  operationLog_.add(operation);
  return operation;
}

SystemSnapshot LockKeeper::lastSnapshot(Date now) const {
  try {
    return controller_.snapshotProvider->snapshot(now);
  } catch (const std::exception&) {
    return last_ ? last_->snapshot : SystemSnapshot();
  }
}

void LockKeeper::record(const LockOperation& operation, Date now) {
  const PowerOperationResult& result = operation.result;
  NODOState state = controller_.store.load();
  state.recordPowerOperation(result, now, operation.reason, maxPowerOperationHistory);
  if (result.action == PowerOperationAction::enableSleep && result.succeeded()) {
    state.ownsSleepDisable = false;
  }
  state.updatedAt = now;
  controller_.store.save(state);
}

// ---- when to run again

std::optional<Date> LockKeeper::nextAttempt(Date now) const {
  const bool isWanted = timer_ && !timerIsOver(now);
  if (lock_.isHeld() == false) {
    return isWanted ? std::optional(nextPoll(now)) : std::nullopt;
  }
  const Date end = confirmedAt_ + patience;
  if (timerIsOver(now) || end <= now) {
    return nextPoll(now);
  }
  return timer_ ? std::min(*timer_->end, end) : end;
}

std::optional<Date> LockKeeper::nextRelease(Date now, Seconds releaseGrace) const {
  if (!last_) {
    return std::nullopt;
  }
  const auto deadline =
      ReconcileSchedule::sleepReleaseDeadline(*last_, releaseGrace.count()).deadline;
  // A release that goes on failing is tried again early once, and then as often as anything else.
  return deadline && isEarlyRecheckDone_ ? nextPoll(now) : deadline;
}

// From the last pass, since a request that is refused makes none and must not put off the next one.
Date LockKeeper::nextPoll(Date now) const {
  return std::min(attemptedAt_, now) + pollInterval;
}

}  // namespace nodo
