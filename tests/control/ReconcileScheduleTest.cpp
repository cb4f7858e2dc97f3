#include <NODOCore/control/NODOController.h>

#include <optional>

#include <gtest/gtest.h>

namespace nodo {
namespace {

const Date now = dateFromSeconds(1769847300);

Date after(double seconds) {
  return now + Seconds(seconds);
}

class ReconcileScheduleTest : public ::testing::Test {
 protected:
  ReconcileScheduleTest() { report.generatedAt = now; }

  std::optional<Date> deadline(double graceSeconds = 2) const {
    return ReconcileSchedule::sleepReleaseDeadline(report, graceSeconds).deadline;
  }

  StatusReport report;
};

TEST_F(ReconcileScheduleTest, WithNothingHeldAndNothingWantedNothingIsPending) {
  report.state.manualUntil = after(600);
  report.noRouteGraceRemainingSeconds = 5;
  EXPECT_EQ(deadline(), std::nullopt);
}

TEST_F(ReconcileScheduleTest, ALockThatIsHeldOrWantedEndsWithTheTimer) {
  report.state.manualUntil = after(600);
  report.state.ownsSleepDisable = true;
  EXPECT_EQ(deadline(), after(602));
  report.decision.shouldPreventSleep = true;
  EXPECT_EQ(deadline(), after(602));
  report.state.ownsSleepDisable = false;
  EXPECT_EQ(deadline(), after(602));
}

TEST_F(ReconcileScheduleTest, ATimerThatIsOverIsDueNow) {
  report.state.ownsSleepDisable = true;
  report.state.manualUntil = after(-600);
  EXPECT_EQ(deadline(), after(2));
}

TEST_F(ReconcileScheduleTest, TheEarlierOfTimerAndOutageCounts) {
  report.decision.shouldPreventSleep = true;
  report.state.manualUntil = after(600);
  report.noRouteGraceRemainingSeconds = 30;
  EXPECT_EQ(deadline(), after(32));
  report.noRouteGraceRemainingSeconds = 900;
  EXPECT_EQ(deadline(), after(602));
  report.noRouteGraceRemainingSeconds = 0;
  EXPECT_EQ(deadline(), after(2));
}

TEST_F(ReconcileScheduleTest, AnOutageCountsWithoutATimerToo) {
  report.state.ownsSleepDisable = true;
  report.noRouteGraceRemainingSeconds = 30;
  EXPECT_EQ(deadline(), after(32));
}

TEST_F(ReconcileScheduleTest, TheEndOfTheGraceForHeatCountsToo) {
  report.decision.shouldPreventSleep = true;
  report.state.manualUntil = after(600);
  report.heatGraceRemainingSeconds = 90;
  EXPECT_EQ(deadline(), after(92));
  report.noRouteGraceRemainingSeconds = 30;
  EXPECT_EQ(deadline(), after(32));
  report.heatGraceRemainingSeconds = 10;
  EXPECT_EQ(deadline(), after(12));
}

TEST_F(ReconcileScheduleTest, AHeldLockWithoutAnEndIsLookedAtAgainSoon) {
  report.state.ownsSleepDisable = true;
  EXPECT_EQ(deadline(), after(2));
}

TEST_F(ReconcileScheduleTest, TheGraceMayHaveAFraction) {
  report.state.ownsSleepDisable = true;
  report.state.manualUntil = after(600);
  EXPECT_EQ(deadline(0.25), after(600.25));
  EXPECT_EQ(deadline(0), after(600));
}

TEST_F(ReconcileScheduleTest, SchedulesAreEqualByTheirDeadlines) {
  EXPECT_EQ(ReconcileSchedule(), ReconcileSchedule{std::nullopt});
  EXPECT_EQ(ReconcileSchedule{now}, ReconcileSchedule{now});
  EXPECT_FALSE(ReconcileSchedule{now} == ReconcileSchedule());
  EXPECT_FALSE(ReconcileSchedule{now} == ReconcileSchedule{after(1)});
}

}  // namespace
}  // namespace nodo
