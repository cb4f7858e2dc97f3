#include <NODOCore/base/Errors.h>
#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/state/NODOState.h>

#include <algorithm>

#include <fuzz/Fuzzing.h>

namespace nodo::fuzzing {
namespace {

constexpr std::size_t mostRecent = 6;
constexpr std::size_t mostHistory = 500;
constexpr std::size_t mostAudits = 20;
constexpr std::size_t mostBuckets = 720;
constexpr Seconds historySpan(12 * 60 * 60);
constexpr Seconds minute(60);

NODOState reread(const NODOState& state) {
  return decodeJSON<NODOState>(encodeJSON(state, JSONLayout::prettySorted));
}

void checkBuckets(const std::vector<TriggerActivityBucket>& buckets) {
  require(buckets.size() <= mostBuckets, "there are at most 720 buckets");
  for (std::size_t index = 0; index < buckets.size(); ++index) {
    require(buckets[index].count >= 1, "no bucket is empty");
    require(index == 0 || buckets[index - 1].startedAt < buckets[index].startedAt,
            "each minute occurs once, oldest first");
  }
}

void checkRemainingTimes(const NODOState& state, Date at) {
  constexpr std::int64_t grace = 300;
  require(state.manualRemainingSeconds(at).value_or(0) >= 0, "no time left is negative");
  require(state.manualIsActive(at) == (state.manualRemainingSeconds(at).value_or(0) > 0),
          "a timer runs as long as a second of it is left");
  require(state.noRouteGraceRemainingSeconds(at, grace).value_or(0) >= 0,
          "no route grace is negative");
  require(state.lidOpenGraceRemainingSeconds(at, grace).value_or(0) >= 0,
          "no lid grace is negative");
}

void checkRecordedRequest(NODOState state, Date at) {
  const ActivationRequester requester("Claude Code", "project", "Stop", at);
  state.recordRequester(requester, at, mostRecent, mostHistory);
  require(state.lastRequester == requester, "the last requester is the recorded one");
  require(state.recentRequesters.size() <= mostRecent, "recent requesters are bounded");
  require(state.recentRequesters.front() == requester, "the newest recent requester comes first");
  require(std::count_if(state.recentRequesters.begin(), state.recentRequesters.end(),
                        [&](const ActivationRequester& entry) {
                          return entry.name == requester.name && entry.context == requester.context;
                        }) == 1,
          "a requester is recent once");
  require(state.triggerHistory.size() <= mostHistory, "the history is bounded");
  require(state.triggerHistory.back() == requester, "the newest request ends the history");
  for (const ActivationRequester& entry : state.triggerHistory) {
    require(entry.requestedAt >= at - historySpan && entry.requestedAt <= at,
            "the history holds the last 12 hours");
  }
  checkBuckets(state.triggerActivityBuckets);
  for (const TriggerActivityBucket& bucket : state.triggerActivityBuckets) {
    require(bucket.startedAt <= at && bucket.startedAt + minute > at - historySpan,
            "buckets hold the last 12 hours");
  }
}

void checkRecordedOperation(NODOState state, Date at) {
  const std::size_t before = state.powerOperationHistory.size();
  state.recordPowerOperation({true, true, std::nullopt, std::nullopt, "", ""}, at, "enable:test",
                             mostAudits);
  require(state.powerOperationHistory.size() == std::min(before + 1, mostAudits),
          "the audits are bounded");
  require(state.lastPowerOperation == state.powerOperationHistory.back(),
          "the last operation ends the audits");
}

void checkState(const NODOState& decoded) {
  checkBuckets(decoded.triggerActivityBuckets);
  // One reading completes a state: a time of decoding with a fraction is cut to its second, and
  // buckets that all were empty are made anew from the history. From then on nothing changes.
  const NODOState state = reread(decoded);
  require(reread(state) == state, "a state reads back equal");
  require(encodeJSON(state, JSONLayout::compact) == encodeJSON(reread(state), JSONLayout::compact),
          "a state is written the same again");

  for (const Date at : {state.updatedAt, state.createdAt, state.manualUntil.value_or(Date())}) {
    checkRemainingTimes(state, at);
    checkRecordedRequest(state, at);
    checkRecordedOperation(state, at);
  }
}

}  // namespace
}  // namespace nodo::fuzzing

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  nodo::NODOState state;
  try {
    state = nodo::decodeJSON<nodo::NODOState>(nodo::fuzzing::textOf(data, size));
  } catch (const nodo::DecodingError& error) {
    nodo::fuzzing::require(nodo::isValidUTF8(error.what()), "an error's message is valid UTF-8");
    return 0;
  }
  nodo::fuzzing::checkState(state);
  return 0;
}
