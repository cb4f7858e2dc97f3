#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/control/NODOController.h>
#include <NODOCore/presentation/HistoryReport.h>

#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

namespace nodo {
namespace {

const Date now = dateFromSeconds(1'769'847'300);  // 2026-01-31 08:15 UTC

Date ago(double minutes) {
  return now - Seconds(minutes * 60);
}

// A state whose operations a test makes, with the minutes that have passed since.
class HistoryReportTest : public ::testing::Test {
 protected:
  using Period = std::tuple<double, double, PeriodEnding>;  // minutes ago

  void operation(double minutes, PowerOperationAction action, std::optional<std::string> reason,
                 std::optional<std::int32_t> exitCode = 0, bool dryRun = false) {
    state.powerOperationHistory.emplace_back(action, ago(minutes), std::move(reason), dryRun,
                                             exitCode, std::nullopt);
    state.updatedAt = ago(minutes);
  }

  void take(double minutes) {
    operation(minutes, PowerOperationAction::disableSleep, "enable:manual_timer");
    state.ownsSleepDisable = true;
  }

  void release(double minutes, const std::string& why) {
    operation(minutes, PowerOperationAction::enableSleep, "release:" + why);
    state.ownsSleepDisable = false;
  }

  void request(double minutes, const std::string& name,
               const std::optional<std::string>& context = {}) {
    state.recordRequester({name, context, std::nullopt, now}, ago(minutes), 6, 500);
  }

  HistoryReport report(double minutes = 720) const {
    return {{.generatedAt = now, .state = state}, DoctorStatusSource::helper, ago(minutes), now};
  }

  static std::vector<Period> periods(const std::vector<HistoryPeriod>& periods) {
    std::vector<Period> found;
    for (const HistoryPeriod& period : periods) {
      found.emplace_back((now - period.startedAt).count() / 60, (now - period.endedAt).count() / 60,
                         period.ending);
    }
    return found;
  }

  using Periods = std::vector<Period>;

  NODOState state = NODOState::fresh(ago(2000));
};

TEST_F(HistoryReportTest, WithoutHistoriesNothingHappenedAndThatIsKnown) {
  const HistoryReport nothing = report();
  EXPECT_TRUE(nothing.isEmpty());
  EXPECT_EQ(nothing.lockKnownSince, std::nullopt);
  EXPECT_EQ(nothing.requestsListedSince, std::nullopt);
}

TEST_F(HistoryReportTest, TheLockIsHeldFromATakeToARelease) {
  take(120);
  release(60, "manual_expired");
  take(30);
  EXPECT_EQ(periods(report().lockPeriods),
            (Periods{{120, 60, PeriodEnding::recorded}, {30, 0, PeriodEnding::lasts}}));
  EXPECT_EQ(report().lockPeriods[0].reason, "enable:manual_timer");
  EXPECT_EQ(report().vetoes, std::vector<HistoryPeriod>());
  EXPECT_EQ(report().operations.size(), 3U);
  EXPECT_EQ(report().lockKnownSince, std::nullopt);
}

TEST_F(HistoryReportTest, WhatLiesBeforeTheSpanIsLeftOut) {
  take(300);
  release(200, "manual_expired");
  take(100);
  release(20, "manual_expired");
  EXPECT_EQ(periods(report(60).lockPeriods), (Periods{{60, 20, PeriodEnding::recorded}}));
  EXPECT_EQ(report(60).operations.size(), 1U);
}

TEST_F(HistoryReportTest, WhatFailedOrWasSimulatedHoldsNoLock) {
  operation(90, PowerOperationAction::disableSleep, "enable:manual_timer", 1);
  operation(80, PowerOperationAction::disableSleep, "enable:manual_timer", std::nullopt, true);
  operation(70, PowerOperationAction::disableSleep, "enable:manual_timer", std::nullopt);
  EXPECT_EQ(report().lockPeriods, std::vector<HistoryPeriod>());
  EXPECT_EQ(report().operations.size(), 3U);
  take(60);
  operation(50, PowerOperationAction::enableSleep, "release:user_stop", 1);
  operation(40, PowerOperationAction::sleepNow, "closed_lid_release");
  EXPECT_EQ(periods(report().lockPeriods), (Periods{{60, 0, PeriodEnding::lasts}}));
}

TEST_F(HistoryReportTest, WithoutAReleaseNobodyKnowsWhenALockEnded) {
  take(120);  // the daemon was killed
  take(60);
  state.ownsSleepDisable = false;
  EXPECT_EQ(periods(report().lockPeriods),
            (Periods{{120, 60, PeriodEnding::unknown}, {60, 0, PeriodEnding::unknown}}));
}

TEST_F(HistoryReportTest, AVetoLastsUntilTheLockIsTakenAgain) {
  for (const char* rule :
       {"battery_below_threshold", "network_unavailable", "thermal_pressure", "low_power_mode"}) {
    state.powerOperationHistory.clear();
    take(120);
    release(90, rule);
    take(60);
    EXPECT_EQ(periods(report().vetoes), (Periods{{90, 60, PeriodEnding::recorded}})) << rule;
    EXPECT_EQ(report().vetoes[0].reason, std::string("release:") + rule);
  }
  for (const char* other : {"manual_expired", "user_stop", "daemon_stopping", "battery", ""}) {
    state.powerOperationHistory.clear();
    take(120);
    release(90, other);
    EXPECT_EQ(report().vetoes, std::vector<HistoryPeriod>()) << other;
  }
}

TEST_F(HistoryReportTest, AVetoEndsWithTheTimerAtLast) {
  take(120);
  release(90, "battery_below_threshold");
  state.manualUntil = now + Seconds(600);
  EXPECT_EQ(periods(report().vetoes), (Periods{{90, 0, PeriodEnding::lasts}}));
  state.manualUntil = ago(5);
  EXPECT_EQ(periods(report().vetoes), (Periods{{90, 5, PeriodEnding::recorded}}));
  state.manualUntil.reset();
  state.updatedAt = ago(30);  // no later than then, and it is not recorded when
  EXPECT_EQ(periods(report().vetoes), (Periods{{90, 30, PeriodEnding::unknown}}));
  release(40, "user_stop");
  EXPECT_EQ(periods(report().vetoes), (Periods{{90, 40, PeriodEnding::recorded}}));
}

TEST_F(HistoryReportTest, ALockTakenBeforeTheHistoryBeginsIsKnownFromThere) {
  operation(50, PowerOperationAction::enableSleep, "release:user_stop", 1);
  state.ownsSleepDisable = true;
  EXPECT_EQ(report().lockKnownSince, ago(50));
  EXPECT_EQ(periods(report().lockPeriods), (Periods{{50, 0, PeriodEnding::lasts}}));
  state.powerOperationHistory.clear();
  state.updatedAt = ago(10);
  EXPECT_EQ(report().lockKnownSince, ago(10));
  state.powerOperationHistory.clear();
  release(40, "manual_expired");
  EXPECT_EQ(report().lockKnownSince, ago(40));
  EXPECT_EQ(report().lockPeriods, std::vector<HistoryPeriod>());
}

TEST_F(HistoryReportTest, AFullHistoryTellsNothingOfTheTimeBefore) {
  for (std::size_t at = 0; at < maxPowerOperationHistory; at += 2) {
    take(300 - static_cast<double>(at));
    release(299 - static_cast<double>(at), "manual_expired");
  }
  EXPECT_EQ(report().lockKnownSince, ago(300));
  EXPECT_EQ(report(200).lockKnownSince, std::nullopt);
  state.powerOperationHistory.erase(state.powerOperationHistory.begin(),
                                    state.powerOperationHistory.begin() + 2);
  EXPECT_EQ(report().lockKnownSince, std::nullopt);
}

TEST_F(HistoryReportTest, RequestsForTheSameWithNoneOfOthersBetweenAreOne) {
  request(60, "Codex", "api");
  request(50, "Codex", "api");
  request(40, "Codex", "web");
  request(30, "Pi");
  request(20, "Codex", "api");
  const std::vector<RequestGroup> expected{
      {.name = "Codex", .context = "api", .count = 2, .firstAt = ago(60), .lastAt = ago(50)},
      {.name = "Codex", .context = "web", .count = 1, .firstAt = ago(40), .lastAt = ago(40)},
      {.name = "Pi", .count = 1, .firstAt = ago(30), .lastAt = ago(30)},
      {.name = "Codex", .context = "api", .count = 1, .firstAt = ago(20), .lastAt = ago(20)}};
  EXPECT_EQ(report().requests, expected);
  EXPECT_EQ(report().requestMinutes.size(), 5U);
  EXPECT_EQ(report(35).requests, (std::vector<RequestGroup>{expected[2], expected[3]}));
  EXPECT_EQ(report(35).requestMinutes.size(), 2U);
}

TEST_F(HistoryReportTest, RequestsThatAreOnlyCountedAreSaidToBeEarlier) {
  request(60, "Codex");
  request(50, "Codex");
  state.triggerHistory.erase(state.triggerHistory.begin());
  EXPECT_EQ(report().requestsListedSince, ago(50));
  EXPECT_EQ(report(30).requestsListedSince, std::nullopt);
  EXPECT_EQ(report().requestMinutes.size(), 2U);
}

TEST_F(HistoryReportTest, RequestsAreKeptForTwelveHoursOnly) {
  request(60, "Codex");
  EXPECT_EQ(report(24 * 60).requestsListedSince, ago(60 + 720));
  EXPECT_EQ(report(13 * 60).requestsListedSince, std::nullopt);
}

TEST_F(HistoryReportTest, AClockThatWasSetBackTurnsNoPeriodRound) {
  take(-30);
  request(-30, "Codex");
  EXPECT_EQ(periods(report().lockPeriods), (Periods{{0, 0, PeriodEnding::lasts}}));
  EXPECT_EQ(report().requests, std::vector<RequestGroup>());
  take(-30);
  release(10, "user_stop");
  for (const HistoryPeriod& period : report().lockPeriods) {
    EXPECT_LE(period.startedAt, period.endedAt);
    EXPECT_LE(period.endedAt, now);
  }
}

TEST_F(HistoryReportTest, ItsDocumentCanBeReadAgain) {
  request(60, "Codex", "api");
  take(60);
  release(50, "network_unavailable");
  state.manualUntil = now + Seconds(60);
  const HistoryReport before = report(120);
  const std::string text = encodeJSON(before, JSONLayout::compact);
  EXPECT_EQ(decodeJSON<HistoryReport>(text), before);
  EXPECT_EQ(
      text,
      R"({"since":"2026-01-31T06:15:00Z","until":"2026-01-31T08:15:00Z","statusSource":"helper",)"
      R"("requestMinutes":[{"startedAt":"2026-01-31T07:15:00Z","count":1}],)"
      R"("requests":[{"name":"Codex","context":"api","count":1,"firstAt":"2026-01-31T07:15:00Z",)"
      R"("lastAt":"2026-01-31T07:15:00Z"}],)"
      R"("lockPeriods":[{"startedAt":"2026-01-31T07:15:00Z","endedAt":"2026-01-31T07:25:00Z",)"
      R"("ending":"recorded","reason":"enable:manual_timer"}],)"
      R"("vetoes":[{"startedAt":"2026-01-31T07:25:00Z","endedAt":"2026-01-31T08:15:00Z",)"
      R"("ending":"lasts","reason":"release:network_unavailable"}],)"
      R"("operations":[{"action":"disable_sleep","occurredAt":"2026-01-31T07:15:00Z",)"
      R"("reason":"enable:manual_timer","dryRun":false,"exitCode":0},)"
      R"({"action":"enable_sleep","occurredAt":"2026-01-31T07:25:00Z",)"
      R"("reason":"release:network_unavailable","dryRun":false,"exitCode":0}]})");
}

}  // namespace
}  // namespace nodo
