#include <NODOCore/base/LocalTime.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/daemon/LockMark.h>
#include <NODOCore/daemon/SleepLock.h>

#include <exception>
#include <string_view>
#include <utility>

#include <fmt/format.h>

namespace nodo {
namespace {

struct ActionWords {
  std::string_view done;
  std::string_view attempted;
};

ActionWords wordsOf(PowerOperationAction action) {
  switch (action) {
    case PowerOperationAction::disableSleep:
      return {"sleep lock switched on", "switching the sleep lock on"};
    case PowerOperationAction::enableSleep:
      return {"sleep lock switched off", "switching the sleep lock off"};
    case PowerOperationAction::sleepNow:
      break;
  }
  return {"asked for sleep", "asking for sleep"};
}

}  // namespace

std::string troubleText(const PowerOperationResult& operation) {
  const std::string_view attempted = wordsOf(operation.action).attempted;
  if (operation.dryRun) {
    return fmt::format("{} is only simulated", attempted);
  }
  const std::string exit =
      operation.exitCode ? fmt::format("exit {}", *operation.exitCode) : "no exit status";
  const std::string_view said = trimmed(operation.standardError);
  return fmt::format("{} failed ({}){}{}", attempted, exit, said.empty() ? "" : ": ", said);
}

SleepLock simulatedSleepLock() {
  return {.manager = std::make_unique<NoopPowerManager>(),
          .isHeld = [] { return std::optional(false); },
          .diesWithProcess = true,
          .isSimulated = true};
}

WatchedLock::WatchedLock(SleepLock lock) : lock_(std::move(lock)) {
  if (lock_.diesWithProcess || lock_.isSimulated) {
    reading_ = LockReading::off;
  }
  if (lock_.mark) {
    mark_ = std::make_shared<LockMark>(*lock_.mark);
    owesRelease_ = mark_->isSet();
  }
}

PowerOperationResult WatchedLock::setSleepDisabled(bool disabled) {
  setMark(disabled);
  const bool owedBefore = owesRelease_;
  owesRelease_ = owesRelease_ || (disabled && !lock_.diesWithProcess);
  PowerOperationResult result = lock_.manager->setSleepDisabled(disabled);
  operations_.push_back({result, std::exchange(reason_, {})});
  if (result.succeeded()) {
    reading_ = disabled ? LockReading::on : LockReading::off;
    owesRelease_ = disabled;
  } else if (result.dryRun) {
    owesRelease_ = owedBefore;
  }
  return result;
}

// Before a release, too: the sleep that it may call for must not be forgotten. But without a mark
// it is better than none.
void WatchedLock::setMark(bool isRequired) {
  try {
    if (mark_) {
      mark_->set();
    }
  } catch (const std::exception&) {
    if (isRequired) {
      throw;
    }
  }
}

PowerOperationResult WatchedLock::requestSleepNow() {
  PowerOperationResult result = lock_.manager->requestSleepNow();
  operations_.push_back({result, std::exchange(reason_, {})});
  return result;
}

void WatchedLock::setTerms(Date until, bool keepsDisplayOn, Date now) {
  if (!lock_.setTerms || (until == until_ && keepsDisplayOn == terms_.keepsDisplayOn)) {
    return;
  }
  LockTerms terms{.why = fmt::format("nodo keeps this computer awake until {}; nodoctl off",
                                     clockText(until, now)),
                  .keepsDisplayOn = keepsDisplayOn};
  if (terms != terms_) {
    lock_.setTerms(terms);
    terms_ = std::move(terms);
  }
  until_ = until;
}

void WatchedLock::lockSessions() const {
  if (lock_.lockSessions) {
    lock_.lockSessions();
  }
}

LockLook WatchedLock::askMachine(const Moment& at) {
  if (const std::optional<bool> live = lock_.isHeld()) {
    reading_ = *live ? LockReading::on : LockReading::off;
    owesRelease_ = owesRelease_ && (*live || !lock_.diesWithProcess);
  }
  return look(at);
}

LockLook WatchedLock::look(const Moment& at) const {
  return {
      .at = at, .lock = reading_, .owesRelease = owesRelease_, .isMarked = mark_ && mark_->isSet()};
}

void WatchedLock::adopt() {
  setMark(false);
  owesRelease_ = true;
}

void WatchedLock::removeMark() {
  if (mark_) {
    mark_->remove();
  }
}

std::vector<LockOperation> WatchedLock::takeOperations() {
  return std::exchange(operations_, {});
}

void OperationLog::add(const LockOperation& operation, const std::string& requester) {
  const PowerOperationResult& result = operation.result;
  if (!result.succeeded()) {
    addTrouble(troubleText(result));
    return;
  }
  lastTrouble_.clear();
  std::string why = operation.reason;
  if (result.action == PowerOperationAction::disableSleep && !requester.empty()) {
    why += (why.empty() ? "" : ", ") + requester;
  }
  log_(fmt::format("{}{}{}{}", wordsOf(result.action).done, why.empty() ? "" : " (", why,
                   why.empty() ? "" : ")"));
}

void OperationLog::addTrouble(const std::string& line) {
  if (line != lastTrouble_) {
    log_(line);
    lastTrouble_ = line;
  }
}

}  // namespace nodo
