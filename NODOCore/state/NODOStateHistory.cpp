#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/state/NODOState.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <string_view>
#include <utility>

namespace nodo {

namespace {

constexpr std::size_t longestText = 120;
constexpr std::string_view ellipsis = "...";

// `text` when it has at most `maxLength` characters, else its beginning and "...", `maxLength`
// characters in all.
std::string shortened(std::string_view text, std::size_t maxLength) {
  if (firstCharacters(text, maxLength).size() == text.size()) {
    return std::string(text);
  }
  return std::string(firstCharacters(text, maxLength - ellipsis.size())) + std::string(ellipsis);
}

std::optional<std::string> normalised(const std::optional<std::string>& given) {
  if (!given) {
    return std::nullopt;
  }
  std::string text = repairedUTF8(*given);
  for (char& character : text) {
    if (character == '\n' || character == '\r' || character == '\t') {
      character = ' ';
    }
  }
  const std::string_view inner = trimmed(text);
  if (inner.empty()) {
    return std::nullopt;
  }
  return shortened(inner, longestText);
}

}  // namespace

ActivationRequester::ActivationRequester(const std::string& name,
                                         const std::optional<std::string>& context,
                                         const std::optional<std::string>& event, Date requestedAt)
    : name(normalised(name).value_or("Unknown")),
      context(normalised(context)),
      event(normalised(event)),
      requestedAt(requestedAt) {}

ActivationRequester ActivationRequester::requested(Date at) const {
  return {name, context, event, at};
}

std::string ActivationRequester::displayText() const {
  return context ? name + " - " + *context : name;
}

std::string ActivationRequester::shortDisplayText(std::size_t maxLength) const {
  const std::string text = displayText();
  if (maxLength <= ellipsis.size()) {
    return std::string(firstCharacters(text, maxLength));
  }
  return shortened(text, maxLength);
}

NODO_JSON_RECORD(ActivationRequester, fields, requester) {
  fields.required("name", requester.name);
  fields.optional("context", requester.context);
  fields.optional("event", requester.event);
  fields.required("requestedAt", requester.requestedAt);
}

NODO_JSON_RECORD(TriggerActivityBucket, fields, bucket) {
  fields.required("startedAt", bucket.startedAt);
  fields.required("count", bucket.count);
}

PowerOperationAudit::PowerOperationAudit(const PowerOperationResult& operation, Date occurredAt,
                                         std::optional<std::string> reason)
    : PowerOperationAudit(operation.action, occurredAt, std::move(reason), operation.dryRun,
                          operation.exitCode, operation.executedCommand) {}

PowerOperationAudit::PowerOperationAudit(PowerOperationAction action, Date occurredAt,
                                         std::optional<std::string> reason, bool dryRun,
                                         std::optional<std::int32_t> exitCode,
                                         std::optional<std::string> command)
    : action(action),
      occurredAt(occurredAt),
      reason(std::move(reason)),
      dryRun(dryRun),
      exitCode(exitCode),
      command(std::move(command)) {}

NODO_JSON_RECORD(PowerOperationAudit, fields, audit) {
  fields.required("action", audit.action);
  fields.required("occurredAt", audit.occurredAt);
  fields.optional("reason", audit.reason);
  fields.required("dryRun", audit.dryRun);
  fields.optional("exitCode", audit.exitCode);
  fields.optional("command", audit.command);
}

namespace {

constexpr Seconds historySpan(12 * 60 * 60);
constexpr Seconds minute(60);
constexpr std::size_t mostBuckets = 720;  // the minutes of that span

// Truncated towards zero.
Date minuteOf(Date time) {
  return dateFromSeconds(std::trunc(secondsSince1970(time) / minute.count()) * minute.count());
}

Date flooredToMinute(Date time) {
  return dateFromSeconds(std::floor(secondsSince1970(time) / minute.count()) * minute.count());
}

bool isWithinHistory(Date time, Date reference) {
  return time >= reference - historySpan && time <= reference;
}

// Counts come from a file, so their sum may not fit.
std::int64_t saturatingSum(std::int64_t left, std::int64_t right) {
  std::int64_t sum = 0;
  return __builtin_add_overflow(left, right, &sum) ? std::numeric_limits<std::int64_t>::max() : sum;
}

template <class Element>
void keepLast(std::vector<Element>& list, std::size_t count) {
  if (list.size() > count) {
    list.erase(list.begin(), list.end() - static_cast<std::ptrdiff_t>(count));
  }
}

template <class Element>
void keepFirst(std::vector<Element>& list, std::size_t count) {
  if (list.size() > count) {
    list.erase(list.begin() + static_cast<std::ptrdiff_t>(count), list.end());
  }
}

std::vector<TriggerActivityBucket> bucketsFrom(const std::map<Date, std::int64_t>& counts) {
  std::vector<TriggerActivityBucket> buckets;
  buckets.reserve(counts.size());
  for (const auto& [startedAt, count] : counts) {
    buckets.push_back({.startedAt = startedAt, .count = count});
  }
  keepLast(buckets, mostBuckets);
  return buckets;
}

void countRequest(std::vector<TriggerActivityBucket>& buckets, Date at) {
  const Date startedAt = minuteOf(at);
  const auto sameMinute =
      std::find_if(buckets.begin(), buckets.end(),
                   [startedAt](const auto& bucket) { return bucket.startedAt == startedAt; });
  if (sameMinute == buckets.end()) {
    buckets.push_back({.startedAt = startedAt, .count = 1});
  } else {
    sameMinute->count = saturatingSum(sameMinute->count, 1);
  }
  // A bucket belongs to the span as long as one instant of its minute does.
  std::erase_if(buckets, [at](const TriggerActivityBucket& bucket) {
    return bucket.startedAt + minute <= at - historySpan || bucket.startedAt > at;
  });
  buckets = NODOState::normalisedBuckets(buckets);
}

}  // namespace

void NODOState::recordRequester(const ActivationRequester& requester, Date at,
                                std::size_t maxRecentCount, std::size_t maxTriggerHistoryCount) {
  const ActivationRequester recorded = requester.requested(at);
  lastRequester = recorded;
  countRequest(triggerActivityBuckets, at);

  triggerHistory.push_back(recorded);
  std::erase_if(triggerHistory, [at](const ActivationRequester& entry) {
    return !isWithinHistory(entry.requestedAt, at);
  });
  keepLast(triggerHistory, maxTriggerHistoryCount);

  std::erase_if(recentRequesters, [&recorded](const ActivationRequester& entry) {
    return entry.name == recorded.name && entry.context == recorded.context;
  });
  recentRequesters.insert(recentRequesters.begin(), recorded);
  keepFirst(recentRequesters, maxRecentCount);
}

void NODOState::recordPowerOperation(const PowerOperationResult& operation, Date at,
                                     const std::string& reason, std::size_t maxHistoryCount) {
  lastPowerOperation = PowerOperationAudit(operation, at, reason);
  powerOperationHistory.push_back(*lastPowerOperation);
  keepLast(powerOperationHistory, maxHistoryCount);
}

std::vector<TriggerActivityBucket> NODOState::makeTriggerActivityBuckets(
    const std::vector<ActivationRequester>& from, std::optional<Date> now) {
  if (!now) {
    const auto latest = std::max_element(
        from.begin(), from.end(),
        [](const auto& left, const auto& right) { return left.requestedAt < right.requestedAt; });
    now = latest == from.end() ? currentDate() : latest->requestedAt;
  }
  std::map<Date, std::int64_t> counts;
  for (const ActivationRequester& requester : from) {
    if (isWithinHistory(requester.requestedAt, *now)) {
      ++counts[minuteOf(requester.requestedAt)];
    }
  }
  return bucketsFrom(counts);
}

std::vector<TriggerActivityBucket> NODOState::normalisedBuckets(
    const std::vector<TriggerActivityBucket>& stored) {
  std::map<Date, std::int64_t> counts;
  for (const TriggerActivityBucket& bucket : stored) {
    if (bucket.count >= 1) {
      std::int64_t& count = counts[flooredToMinute(bucket.startedAt)];
      count = saturatingSum(count, bucket.count);
    }
  }
  return bucketsFrom(counts);
}

}  // namespace nodo
