#include <NODOCore/daemon/LockKeeper.h>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <utility>

namespace nodo {
namespace {

std::string reasonOf(ReleaseCause cause) {
  const std::string prefix = reason::releasePrefix;
  switch (cause) {
    case ReleaseCause::stop:
      return prefix + reason::userStop;
    case ReleaseCause::repair:
      return prefix + reason::repair;
    case ReleaseCause::daemonStopping:
      return prefix + reason::daemonStopping;
    case ReleaseCause::unconfirmed:
      break;
  }
  return prefix + reason::unconfirmed;
}

// The operation of `run` that the system refused; a simulation refuses nothing.
const PowerOperationResult* refusal(const DaemonRunReport& run, PowerOperationAction action) {
  const auto& operations = run.operations;
  const auto refused = std::find_if(
      operations.rbegin(), operations.rend(), [action](const PowerOperationResult& operation) {
        return operation.action == action && !operation.succeeded() && !operation.dryRun;
      });
  return refused != operations.rend() ? &*refused : nullptr;
}

void requireGranted(const DaemonRunReport& run, PowerOperationAction action) {
  if (const PowerOperationResult* const refused = refusal(run, action)) {
    throw std::runtime_error(troubleText(*refused));
  }
}

std::string unreleasedText(const std::exception& error) {
  return "the sleep lock could not be released: " + std::string(error.what());
}

// What is tried again every minute is recorded once, as it would fill the history.
bool isRepeated(PowerOperationAudit last, const PowerOperationAudit& now) {
  last.occurredAt = now.occurredAt;
  return last == now;
}

void keepNotLater(std::optional<Date>& date, Date limit) {
  if (date && *date > limit) {
    date = limit;
  }
}

}  // namespace

LockKeeper::LockKeeper(NODOController controller, SleepLock lock, DaemonLog log,
                       const DaemonSettings& settings, const Moment& now)
    : controller_(std::move(controller)),
      lock_(std::move(lock)),
      operationLog_(log),
      log_(std::move(log)),
      settings_(settings),
      life_(LockLife::beginning(lock_.look(now))),
      now_(now) {
  controller_.store.memory = std::make_shared<StateStore::Memory>();
  use(settings);
}

void LockKeeper::use(const DaemonSettings& settings) {
  settings_ = settings;
  controller_.decisionEngine.policy = settings.policy;
}

// ---- what happens

void LockKeeper::happen(Occasion occasion, const Moment& now, const Change& change) {
  now_ = now;
  occasion_ = occasion;
  change_ = change;
  isTimerSet_ = false;
  run_.reset();
  failure_ = nullptr;
  const bool isEnd = occasion == Occasion::terminating;
  follow({.look = isEnd ? lock_.look(now) : lock_.askMachine(now), .what = occasion});
}

void LockKeeper::follow(const LockEvent& event) {
  LockStep step = nodo::follow(std::move(life_), event);
  life_ = std::move(step.life);
  for (const LockEffect& effect : step.effects) {
    std::visit([this](const auto& wanted) { perform(wanted); }, effect);
  }
}

DaemonRunReport LockKeeper::takeRun() {
  if (failure_) {
    std::rethrow_exception(std::exchange(failure_, nullptr));
  }
  return std::move(run_.value());
}

void LockKeeper::releaseLeftBehind(const Moment& now) noexcept {
  if (!lock_.look(now).owesRelease) {
    return;
  }
  try {
    now_ = now;
    const std::optional<StateFacts> facts = storedFacts();
    follow({.look = lock_.askMachine(now),
            .what = Occasion::started,
            .timer = facts ? std::optional(KnownTimer{facts->timerEnd}) : std::nullopt});
  } catch (const std::exception& error) {
    operationLog_.addTrouble(error.what());
  }
}

StatusReport LockKeeper::status(const Moment& now) const {
  return controller_.report(amended(controller_.store.load(), life_.amendment(now), now.civil),
                            now.civil);
}

void LockKeeper::wake(const Moment& now, bool resumed) {
  happen(resumed ? Occasion::resumed : Occasion::woken, now);
  if (failure_) {
    std::rethrow_exception(std::exchange(failure_, nullptr));
  }
}

DaemonRunReport LockKeeper::pass(const Moment& now) {
  happen(Occasion::passAsked, now);
  return takeRun();
}

StatusReport LockKeeper::enableManual(std::int64_t minutes, bool extendOnly,
                                      const std::optional<ActivationRequester>& requester,
                                      const Moment& now) {
  controller_.requireDuration(minutes);
  happen(Occasion::timerAsked, now,
         [&](NODOState& state) { setTimer(state, minutes, extendOnly, requester, now.civil); });
  try {
    const DaemonRunReport run = takeRun();
    requireGranted(run, PowerOperationAction::disableSleep);
    return run.status;
  } catch (const std::exception& error) {
    if (!isTimerSet_) {
      throw;
    }
    throw std::runtime_error("the timer is set, but the sleep lock does not follow it yet: " +
                             std::string(error.what()));
  }
}

StatusReport LockKeeper::stop(const Moment& now) {
  happen(Occasion::stopAsked, now);
  try {
    const DaemonRunReport run = takeRun();
    requireGranted(run, PowerOperationAction::enableSleep);
    return run.status;
  } catch (const std::exception& error) {
    throw std::runtime_error(isHeld()
                                 ? unreleasedText(error)
                                 : "the sleep lock is off, but the stop could not be completed: " +
                                       std::string(error.what()));
  }
}

StatusReport LockKeeper::repair(const Moment& now) {
  happen(Occasion::repairAsked, now);
  const DaemonRunReport run = takeRun();
  try {
    requireGranted(run, PowerOperationAction::enableSleep);
  } catch (const std::exception& error) {
    throw std::runtime_error(unreleasedText(error));
  }
  return run.status;
}

bool LockKeeper::shutDown(const Moment& now) noexcept {
  try {
    happen(Occasion::terminating, now);
  } catch (const std::exception& error) {
    operationLog_.addTrouble(error.what());
  }
  return lock_.diesWithProcess() || life_.isOver();
}

std::optional<Seconds> LockKeeper::nextWake(const Moment& now) const {
  const std::optional<Seconds> next = life_.nextWake();
  return next ? std::optional(std::max(*next - now.running, Seconds(0))) : std::nullopt;
}

std::optional<SystemSnapshot> LockKeeper::seen() const {
  return life_.isFailing ? std::nullopt : std::optional(lastSeen_);
}

// ---- a pass

void LockKeeper::perform(const MakePass& effect) {
  PassOutcome outcome;
  const bool wasHeld = isHeld();
  try {
    const std::optional<Date> timerEnd = amend(effect.amendment);
    outcome.isAmended = true;
    setTerms(timerEnd);
    run_ = makePass();
    run_->stateChanged = run_->stateChanged || isAmended_;
    outcome.verdict = verdictOf(*run_);
    outcome.state = StateFacts{run_->status.state.manualUntil, run_->status.state.ownsSleepDisable};
    noteChanges(*run_);
    noteLid(run_->status.snapshot.lidClosed, wasHeld);
    if (outcome.state->ownsLock && lock_.look(now_).lock == LockReading::on) {
      lock_.adopt();
    }
  } catch (const std::exception&) {
    failure_ = std::current_exception();
    outcome.state = storedFacts();
  }
  outcome.isTimerSet = isTimerSet_;
  const std::vector<LockOperation> operations = lock_.takeOperations();
  const auto requester = run_ ? run_->status.state.lastRequester : std::nullopt;
  for (const LockOperation& operation : operations) {
    operationLog_.add(operation, requester ? requester->displayText() : "");
    outcome.askedForSleep |= operation.result.action == PowerOperationAction::sleepNow;
  }
  follow({.look = lock_.look(now_), .what = outcome});
}

void LockKeeper::noteChanges(const DaemonRunReport& run) {
  const StatusReport& status = run.status;
  lastSeen_.now = status.snapshot.now;  // time passes
  if (run.stateChanged || lastSeen_ != status.snapshot || lastAgents_ != status.agents ||
      lastDecision_ != status.decision) {
    isChanged_ = true;
    lastSeen_ = status.snapshot;
    lastAgents_ = status.agents;
    lastDecision_ = status.decision;
  }
}

DaemonRunReport LockKeeper::makePass() {
  const LockReading lock = life_.look.lock;
  const auto live =
      lock == LockReading::unknown ? std::nullopt : std::optional(lock == LockReading::on);
  return occasion_ == Occasion::repairAsked ? controller_.repair(lock_, live, now_.civil)
                                            : controller_.reconcile(lock_, live, now_.civil);
}

// Before the pass, as it may take the lock. One whose timer is over only goes.
void LockKeeper::setTerms(std::optional<Date> timerEnd) {
  if (timerEnd && *timerEnd > now_.civil) {
    try {
      lock_.setTerms(*timerEnd, settings_.keepDisplayOn, now_.civil);
    } catch (const std::exception& error) {
      operationLog_.addTrouble("the sleep lock does not tell until when it is held: " +
                               std::string(error.what()));
    }
  }
}

// Desktops lock as they suspend, which the lock keeps them from: a laptop that goes on working in a
// bag must not be an open one. A lid that cannot be seen for a while is as it was.
void LockKeeper::noteLid(std::optional<bool> closed, bool wasHeld) {
  const bool wasOpen = isLidClosed_ == false;
  isLidClosed_ = closed ? closed : isLidClosed_;
  if (wasOpen && closed == true && wasHeld && settings_.lockOnLidClose) {
    try {
      lock_.lockSessions();
    } catch (const std::exception& error) {
      log_("the lid was closed, but the sessions could not be locked: " +
           std::string(error.what()));
    }
  }
}

PassVerdict LockKeeper::verdictOf(const DaemonRunReport& run) const {
  const StatusReport& report = run.status;
  const auto due = ReconcileSchedule::sleepReleaseDeadline(report, 0).deadline;
  return {.isWanted = report.decision.shouldPreventSleep,
          .deadline = due ? std::optional(*due + settings_.releaseGrace) : std::nullopt,
          .isDueNow = due && *due <= report.generatedAt,
          .needsSleep = releaseNeedsSleepRequest(report.snapshot),
          .wasReleaseRefused = refusal(run, PowerOperationAction::enableSleep) != nullptr,
          .mayEndUnnoticed = report.decision.isVetoedBy(reason::thermalPressure) ||
                             report.decision.isVetoedBy(reason::lowPowerMode)};
}

std::optional<StateFacts> LockKeeper::storedFacts() const noexcept {
  try {
    const NODOState state = controller_.store.load();
    return StateFacts{state.manualUntil, state.ownsSleepDisable};
  } catch (const std::exception&) {
    return std::nullopt;  // the pass says why
  }
}

// ---- what the state file has to be told

void LockKeeper::perform(const AmendState& effect) {
  amend(effect.amendment);
  follow({.look = lock_.look(now_), .what = Occasion::amended});
}

// Returns the timer's end, as it is from now on.
std::optional<Date> LockKeeper::amend(const StateAmendment& amendment) {
  const NODOState stored = controller_.store.load();
  NODOState state = amended(stored, amendment, now_.civil);
  isAmended_ = state != stored;
  bool isChanged = false;
  if (change_) {
    const NODOState before = state;
    change_(state);
    isChanged = state != before;
  } else if (!amendment.ending && occasion_ != Occasion::terminating) {
    isChanged = extendForTool(state);
  }
  if (isAmended_ || isChanged || amendment.mustBeWritten) {
    state.updatedAt = now_.civil;
    controller_.store.save(state);
    isChanged_ = true;
  }
  isTimerSet_ = static_cast<bool>(std::exchange(change_, nullptr));
  return state.manualUntil;
}

// Agents say nothing while a tool works, however long it does.
bool LockKeeper::extendForTool(NODOState& state) {
  if (!settings_.longTools || !isHeld()) {
    return false;
  }
  const auto worker = tools_.look(state, controller_.detector, *controller_.processListing,
                                  now_.civil, now_.running);
  return worker &&
         setTimer(state,
                  std::min(ToolWatch::leaseMinutes, settings_.policy.maxManualDurationMinutes),
                  true, worker, now_.civil);
}

NODOState LockKeeper::amended(NODOState state, const StateAmendment& amendment, Date now) const {
  state.ownsSleepDisable = amendment.ownsLock.value_or(state.ownsSleepDisable);
  for (std::optional<Date>* const date : {&state.manualUntil, &state.noRouteUnavailableSince,
                                          &state.lidOpenedAt, &state.seriousHeatSince}) {
    if (*date) {
      **date += amendment.clockStep;
    }
  }
  // Whoever set the clock ahead before, or wrote the file: nothing lasts longer than it may.
  const auto longest = static_cast<double>(settings_.policy.maxManualDurationMinutes) * 60;
  keepNotLater(state.manualUntil, now + Seconds(longest));
  keepNotLater(state.noRouteUnavailableSince, now);
  keepNotLater(state.lidOpenedAt, now);
  keepNotLater(state.seriousHeatSince, now);
  if (amendment.ending) {
    endTimer(state, *amendment.ending == TimerEnding::stop ? reason::userStop : reason::repair,
             now);
  }
  return state;
}

// ---- outside of a pass

void LockKeeper::perform(const ReleaseLock& effect) {
  bool isReleased = false;
  try {
    const LockOperation operation =
        operate(PowerOperationAction::enableSleep, reasonOf(effect.cause));
    isReleased = operation.result.succeeded();
    record(operation);
  } catch (const std::exception& error) {
    operationLog_.addTrouble((isReleased ? "the release of the sleep lock cannot be recorded: "
                                         : "the sleep lock cannot be released: ") +
                             std::string(error.what()));
  }
  follow({.look = lock_.look(now_), .what = Occasion::releaseTried});
}

void LockKeeper::perform(const AskForSleep& /*effect*/) {
  SleepAnswer answer = SleepAnswer::notNeeded;
  try {
    if (releaseNeedsSleepRequest(lastSnapshot())) {
      answer = SleepAnswer::asked;
      record(operate(PowerOperationAction::sleepNow, reason::closedLidRelease));
    }
  } catch (const std::exception& error) {
    operationLog_.addTrouble(error.what());
  }
  follow({.look = lock_.look(now_), .what = answer});
}

void LockKeeper::perform(const ForgetMark& /*effect*/) {
  try {
    lock_.removeMark();
  } catch (const std::exception& error) {
    operationLog_.addTrouble(error.what());
  }
}

void LockKeeper::perform(const Say& effect) {
  log_(effect.line);
}

SystemSnapshot LockKeeper::lastSnapshot() const {
  try {
    return controller_.snapshotProvider->snapshot(now_.civil);
  } catch (const std::exception&) {
    return lastSeen_;
  }
}

LockOperation LockKeeper::operate(PowerOperationAction action, const std::string& reason) {
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

void LockKeeper::record(const LockOperation& operation) {
  const PowerOperationResult& result = operation.result;
  NODOState state = controller_.store.load();
  const PowerOperationAudit audit(result, now_.civil, operation.reason);
  if (state.lastPowerOperation && isRepeated(*state.lastPowerOperation, audit)) {
    return;
  }
  state.recordPowerOperation(result, now_.civil, operation.reason, maxPowerOperationHistory);
  if (result.action == PowerOperationAction::enableSleep && result.succeeded()) {
    state.ownsSleepDisable = false;
  }
  state.updatedAt = now_.civil;
  controller_.store.save(state);
}

}  // namespace nodo
