#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/power/PowerManaging.h>
#include <NODOCore/state/NODOState.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace nodo {
namespace {

using Buckets = std::vector<TriggerActivityBucket>;

constexpr double ten = 1769853600;  // 2026-01-31 10:00:00
constexpr double twelveHours = 43200;

Date at(double seconds) {
  return dateFromSeconds(ten + seconds);
}

ActivationRequester requester(const std::string& name,
                              const std::optional<std::string>& context = std::nullopt,
                              Date when = at(0)) {
  return {name, context, std::nullopt, when};
}

TriggerActivityBucket bucket(double startedAt, std::int64_t count) {
  return {.startedAt = at(startedAt), .count = count};
}

class NODOStateHistoryTest : public ::testing::Test {
 protected:
  void ask(double seconds, const std::string& name = "Codex",
           const std::optional<std::string>& context = "web") {
    state.recordRequester(requester(name, context), at(seconds), 6, 500);
  }

  std::vector<std::string> recentNames() const {
    std::vector<std::string> names;
    for (const ActivationRequester& each : state.recentRequesters) {
      names.push_back(each.displayText());
    }
    return names;
  }

  NODOState state;
};

TEST_F(NODOStateHistoryTest, AskingTenTimesIsOneRecentRequesterAndTenTriggers) {
  for (int count = 0; count < 10; ++count) {
    ask(count * 30);
  }
  EXPECT_EQ(state.recentRequesters, (std::vector{requester("Codex", "web", at(270))}));
  EXPECT_EQ(state.triggerHistory.size(), 10U);
  EXPECT_EQ(state.triggerHistory.front().requestedAt, at(0));
  EXPECT_EQ(state.triggerHistory.back().requestedAt, at(270));
  EXPECT_EQ(state.triggerActivityBuckets,
            (Buckets{bucket(0, 2), bucket(60, 2), bucket(120, 2), bucket(180, 2), bucket(240, 2)}));
}

TEST_F(NODOStateHistoryTest, TheLastRequesterIsNormalisedAndDatedWithTheRecording) {
  ActivationRequester raw;
  raw.name = " \t";
  raw.context = "a\nb ";
  raw.requestedAt = at(-5000);
  state.recordRequester(raw, at(1), 6, 500);
  const ActivationRequester expected("Unknown", "a b", std::nullopt, at(1));
  EXPECT_EQ(state.lastRequester, expected);
  EXPECT_EQ(state.recentRequesters, (std::vector{expected}));
  EXPECT_EQ(state.triggerHistory, (std::vector{expected}));
}

TEST_F(NODOStateHistoryTest, TwoProjectsOfOneAgentAreTwoRecentRequesters) {
  ask(0, "Codex", "web");
  ask(1, "Codex", "api");
  ask(2, "Codex", std::nullopt);
  ask(3, "Codex", "web");
  ask(4, "Codex", std::nullopt);
  EXPECT_EQ(recentNames(), (std::vector<std::string>{"Codex", "Codex - web", "Codex - api"}));
}

TEST_F(NODOStateHistoryTest, TheSeventhDistinctRequesterPushesOutTheOldest) {
  for (int count = 1; count <= 7; ++count) {
    ask(count, "Agent", std::to_string(count));
  }
  EXPECT_EQ(recentNames(), (std::vector<std::string>{"Agent - 7", "Agent - 6", "Agent - 5",
                                                     "Agent - 4", "Agent - 3", "Agent - 2"}));
}

TEST_F(NODOStateHistoryTest, TheEventDoesNotTellRequestersApart) {
  state.recordRequester({"Pi", "web", "Start", at(0)}, at(0), 6, 500);
  state.recordRequester({"Pi", "web", "Stop", at(0)}, at(1), 6, 500);
  ASSERT_EQ(state.recentRequesters.size(), 1U);
  EXPECT_EQ(state.recentRequesters[0].event, "Stop");
}

TEST_F(NODOStateHistoryTest, AnEntryOfTwelveHoursIsKeptAndOneASecondOlderDropped) {
  ask(0);
  ask(1);
  ask(twelveHours + 1);
  ASSERT_EQ(state.triggerHistory.size(), 2U);
  EXPECT_EQ(state.triggerHistory[0].requestedAt, at(1));
}

TEST_F(NODOStateHistoryTest, AnEntryOfTheFutureIsDropped) {
  ask(100);
  ask(0);
  ASSERT_EQ(state.triggerHistory.size(), 1U);
  EXPECT_EQ(state.triggerHistory[0].requestedAt, at(0));
  EXPECT_EQ(state.triggerActivityBuckets, (Buckets{bucket(0, 1)}));
}

TEST_F(NODOStateHistoryTest, TheTriggerHistoryKeepsTheNewest500) {
  for (int count = 0; count < 501; ++count) {
    ask(count);
  }
  ASSERT_EQ(state.triggerHistory.size(), 500U);
  EXPECT_EQ(state.triggerHistory.front().requestedAt, at(1));
  EXPECT_EQ(state.triggerHistory.back().requestedAt, at(500));
}

TEST_F(NODOStateHistoryTest, RequestsOneTenthOfASecondApartMayFallIntoTwoMinutes) {
  ask(59.9);
  ask(60);
  EXPECT_EQ(state.triggerActivityBuckets, (Buckets{bucket(0, 1), bucket(60, 1)}));
}

TEST_F(NODOStateHistoryTest, AMinuteIsDroppedWhenItIsWhollyOlderThanTwelveHours) {
  ask(0);
  ask(twelveHours + 59);
  EXPECT_EQ(state.triggerActivityBuckets.size(), 2U);
  ask(twelveHours + 60);
  EXPECT_EQ(state.triggerActivityBuckets,
            (Buckets{bucket(twelveHours, 1), bucket(twelveHours + 60, 1)}));
}

TEST_F(NODOStateHistoryTest, RequestsOutOfOrderKeepTheMinutesInOrder) {
  ask(120);
  ask(180);
  state.triggerActivityBuckets = {bucket(180, 1), bucket(120, 1)};
  ask(185);
  EXPECT_EQ(state.triggerActivityBuckets, (Buckets{bucket(120, 1), bucket(180, 2)}));
}

TEST_F(NODOStateHistoryTest, ACountThatIsFullStaysFull) {
  constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
  state.triggerActivityBuckets = {bucket(0, largest)};
  ask(0);
  EXPECT_EQ(state.triggerActivityBuckets, (Buckets{bucket(0, largest)}));
  EXPECT_EQ(NODOState::normalisedBuckets({bucket(0, largest), bucket(1, largest)}),
            (Buckets{bucket(0, largest)}));
}

TEST_F(NODOStateHistoryTest, StoredMinutesAreMergedSortedAndFloored) {
  EXPECT_EQ(NODOState::normalisedBuckets(
                {bucket(120, 2), bucket(60, 0), bucket(0, 1), bucket(179.9, 3), bucket(180, -4)}),
            (Buckets{bucket(0, 1), bucket(120, 5)}));
  EXPECT_EQ(NODOState::normalisedBuckets({{.startedAt = dateFromSeconds(-1), .count = 1}}),
            (Buckets{{.startedAt = dateFromSeconds(-60), .count = 1}}));
  EXPECT_EQ(NODOState::normalisedBuckets({}), Buckets{});
}

TEST_F(NODOStateHistoryTest, OfStoredMinutesTheNewest720AreKept) {
  Buckets stored;
  for (int minute = 721; minute > 0; --minute) {
    stored.push_back(bucket(minute * 60, 1));
  }
  const Buckets kept = NODOState::normalisedBuckets(stored);
  ASSERT_EQ(kept.size(), 720U);
  EXPECT_EQ(kept.front(), bucket(120, 1));
  EXPECT_EQ(kept.back(), bucket(721 * 60, 1));
}

TEST_F(NODOStateHistoryTest, MinutesAreRebuiltFromTheTwelveHoursBeforeAGivenTime) {
  const std::vector<ActivationRequester> requesters = {
      requester("a", std::nullopt, at(-twelveHours - 0.1)),
      requester("a", std::nullopt, at(-twelveHours)),
      requester("b", std::nullopt, at(-30)),
      requester("a", std::nullopt, at(0)),
      requester("a", std::nullopt, at(0.1)),
  };
  EXPECT_EQ(NODOState::makeTriggerActivityBuckets(requesters, at(0)),
            (Buckets{bucket(-twelveHours, 1), bucket(-60, 1), bucket(0, 1)}));
}

TEST_F(NODOStateHistoryTest, WithoutATimeMinutesAreRebuiltUpToTheLatestRequest) {
  const std::vector<ActivationRequester> requesters = {
      requester("a", std::nullopt, at(60)), requester("a", std::nullopt, at(-twelveHours + 59)),
      requester("a", std::nullopt, at(0)), requester("a", std::nullopt, at(-twelveHours + 60))};
  EXPECT_EQ(NODOState::makeTriggerActivityBuckets(requesters, std::nullopt),
            (Buckets{bucket(-twelveHours + 60, 1), bucket(0, 1), bucket(60, 1)}));
  EXPECT_EQ(NODOState::makeTriggerActivityBuckets({}, std::nullopt), Buckets{});
  EXPECT_EQ(NODOState::makeTriggerActivityBuckets({}, at(0)), Buckets{});
}

TEST_F(NODOStateHistoryTest, TheTwentyFirstAuditRemovesTheFirst) {
  for (int count = 1; count <= 21; ++count) {
    state.recordPowerOperation({count % 2 == 0, false, "tool", count, "", ""}, at(count),
                               "reason " + std::to_string(count), 20);
    ASSERT_EQ(state.lastPowerOperation, state.powerOperationHistory.back());
  }
  ASSERT_EQ(state.powerOperationHistory.size(), 20U);
  EXPECT_EQ(state.powerOperationHistory.front().reason, "reason 2");
  EXPECT_EQ(state.powerOperationHistory.back(),
            PowerOperationAudit(PowerOperationAction::enableSleep, at(21), "reason 21", false, 21,
                                "tool"));
}

}  // namespace
}  // namespace nodo
