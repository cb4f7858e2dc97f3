#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/control/NODOController.h>
#include <NODOCore/presentation/HistoryReport.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <iterator>
#include <string_view>
#include <utility>

namespace nodo {

namespace {

constexpr Seconds minute(60);
constexpr Seconds keptRequests(std::chrono::hours(12));  // before the last one

bool isBySafetyRule(const PowerOperationAudit& release) {
  constexpr std::array<std::string_view, 4> rules{reason::batteryBelowThreshold,
                                                  reason::networkUnavailable,
                                                  reason::thermalPressure, reason::lowPowerMode};
  return std::any_of(rules.begin(), rules.end(), [&release](std::string_view rule) {
    return release.reason == std::string(reason::releasePrefix).append(rule);
  });
}

// Follows the lock through the operations, one after another, and collects the periods.
class LockStory {
 public:
  LockStory(const NODOState& state, Date until) : state_(state), until_(until) {}

  void tell() {
    for (const PowerOperationAudit& operation : state_.powerOperationHistory) {
      if (!succeeded(operation) || operation.action == PowerOperationAction::sleepNow) {
        continue;
      }
      if (operation.action == PowerOperationAction::disableSleep) {
        take(operation);
      } else {
        release(operation);
      }
    }
    endLock();
    endVeto();
  }

  std::vector<HistoryPeriod> locks;
  std::vector<HistoryPeriod> vetoes;

 private:
  void take(const PowerOperationAudit& operation) {
    // Without a release between, the daemon was killed, and the lock went with it some time.
    end(lock_, locks, operation.occurredAt, PeriodEnding::unknown);
    end(veto_, vetoes, operation.occurredAt, PeriodEnding::recorded);
    lock_ = begun(operation);
  }

  void release(const PowerOperationAudit& operation) {
    end(lock_, locks, operation.occurredAt, PeriodEnding::recorded);
    if (!isBySafetyRule(operation)) {
      end(veto_, vetoes, operation.occurredAt, PeriodEnding::recorded);
    } else if (!veto_) {
      veto_ = begun(operation);
    }
  }

  void endLock() {
    if (state_.ownsSleepDisable && !lock_ && !state_.powerOperationHistory.empty()) {
      // It was taken before the history begins.
      lock_ = HistoryPeriod{.startedAt = state_.powerOperationHistory.front().occurredAt};
    }
    end(lock_, locks, until_,
        state_.ownsSleepDisable ? PeriodEnding::lasts : PeriodEnding::unknown);
  }

  void endVeto() {
    if (state_.manualUntil) {
      const bool isOver = *state_.manualUntil <= until_;
      end(veto_, vetoes, isOver ? *state_.manualUntil : until_,
          isOver ? PeriodEnding::recorded : PeriodEnding::lasts);
    } else {
      // The state was changed when the timer ended, and maybe later again.
      end(veto_, vetoes, std::min(state_.updatedAt, until_), PeriodEnding::unknown);
    }
  }

  static HistoryPeriod begun(const PowerOperationAudit& operation) {
    return {.startedAt = operation.occurredAt, .reason = operation.reason};
  }

  static void end(std::optional<HistoryPeriod>& period, std::vector<HistoryPeriod>& periods,
                  Date at, PeriodEnding ending) {
    if (period) {
      period->startedAt = std::min(period->startedAt, at);  // the clock may have been set back
      period->endedAt = at;
      period->ending = ending;
      periods.push_back(*std::exchange(period, std::nullopt));
    }
  }

  const NODOState& state_;
  Date until_;
  std::optional<HistoryPeriod> lock_;
  std::optional<HistoryPeriod> veto_;
};

// Those parts of the periods that lie in the time of the report.
std::vector<HistoryPeriod> within(std::vector<HistoryPeriod> periods, Date since, Date until) {
  std::erase_if(periods, [since, until](const HistoryPeriod& period) {
    return period.endedAt < since || period.startedAt > until;
  });
  for (HistoryPeriod& period : periods) {
    period.startedAt = std::max(period.startedAt, since);
    period.endedAt = std::min(period.endedAt, until);
  }
  return periods;
}

// From when on the operations tell whether the lock was held.
std::optional<Date> beginOfOperations(const NODOState& state) {
  const auto& operations = state.powerOperationHistory;
  if (operations.empty()) {
    return state.ownsSleepDisable ? std::optional(state.updatedAt) : std::nullopt;
  }
  const auto first = std::find_if(operations.begin(), operations.end(), [](const auto& operation) {
    return succeeded(operation) && operation.action != PowerOperationAction::sleepNow;
  });
  const bool beganBefore = first == operations.end()
                               ? state.ownsSleepDisable
                               : first->action == PowerOperationAction::enableSleep;
  const bool isFull = operations.size() >= maxPowerOperationHistory;
  return isFull || beganBefore ? std::optional(operations.front().occurredAt) : std::nullopt;
}

// From when on single requests are listed: not those that were dropped, as they were too many, or
// too old when the last one came.
std::optional<Date> beginOfRequests(const NODOState& state, Date since) {
  if (state.triggerHistory.empty()) {
    return std::nullopt;
  }
  const Date first = state.triggerHistory.front().requestedAt;
  const auto& minutes = state.triggerActivityBuckets;
  const bool hasEarlier = std::any_of(minutes.begin(), minutes.end(), [&](const auto& bucket) {
    return bucket.startedAt + minute > since && bucket.startedAt + minute <= first;
  });
  const Date kept = state.triggerHistory.back().requestedAt - keptRequests;
  return hasEarlier ? std::optional(first) : kept > since ? std::optional(kept) : std::nullopt;
}

std::vector<RequestGroup> grouped(const std::vector<ActivationRequester>& requests, Date since,
                                  Date until) {
  std::vector<RequestGroup> groups;
  for (const ActivationRequester& request : requests) {
    const Date at = request.requestedAt;
    if (at < since || at > until) {
      continue;
    }
    if (groups.empty() || groups.back().name != request.name ||
        groups.back().context != request.context) {
      groups.push_back({.name = request.name, .context = request.context, .firstAt = at});
    }
    ++groups.back().count;
    groups.back().lastAt = at;
  }
  return groups;
}

}  // namespace

bool succeeded(const PowerOperationAudit& operation) {
  return !operation.dryRun && operation.exitCode == 0;
}

HistoryReport::HistoryReport(const StatusReport& status, DoctorStatusSource source, Date since,
                             Date until)
    : since(since),
      until(until),
      statusSource(source),
      requests(grouped(status.state.triggerHistory, since, until)),
      requestsListedSince(beginOfRequests(status.state, since)) {
  const NODOState& state = status.state;
  std::copy_if(state.triggerActivityBuckets.begin(), state.triggerActivityBuckets.end(),
               std::back_inserter(requestMinutes), [&](const TriggerActivityBucket& bucket) {
                 return bucket.startedAt + minute > since && bucket.startedAt <= until;
               });
  std::copy_if(state.powerOperationHistory.begin(), state.powerOperationHistory.end(),
               std::back_inserter(operations), [&](const PowerOperationAudit& operation) {
                 return operation.occurredAt >= since && operation.occurredAt <= until;
               });
  LockStory story(state, until);
  story.tell();
  lockPeriods = within(std::move(story.locks), since, until);
  vetoes = within(std::move(story.vetoes), since, until);
  const auto known = beginOfOperations(state);
  if (known && *known > since) {
    lockKnownSince = std::min(*known, until);
  }
}

bool HistoryReport::isEmpty() const {
  return requestMinutes.empty() && requests.empty() && operations.empty() && lockPeriods.empty() &&
         vetoes.empty();
}

NODO_JSON_RECORD(RequestGroup, fields, group) {
  fields.required("name", group.name);
  fields.optional("context", group.context);
  fields.required("count", group.count);
  fields.required("firstAt", group.firstAt);
  fields.required("lastAt", group.lastAt);
}

NODO_JSON_RECORD(HistoryPeriod, fields, period) {
  fields.required("startedAt", period.startedAt);
  fields.required("endedAt", period.endedAt);
  fields.required("ending", period.ending);
  fields.optional("reason", period.reason);
}

NODO_JSON_RECORD(HistoryReport, fields, report) {
  fields.required("since", report.since);
  fields.required("until", report.until);
  fields.required("statusSource", report.statusSource);
  fields.required("requestMinutes", report.requestMinutes);
  fields.required("requests", report.requests);
  fields.optional("requestsListedSince", report.requestsListedSince);
  fields.required("lockPeriods", report.lockPeriods);
  fields.required("vetoes", report.vetoes);
  fields.optional("lockKnownSince", report.lockKnownSince);
  fields.required("operations", report.operations);
}

}  // namespace nodo
