#include <programs/nodo-menu/Notices.h>

#include <optional>

#include <gmock/gmock.h>

#include <tests/programs/nodo-menu/SampleFacts.h>

namespace nodo::menu {
namespace {

using sample::idle;
using sample::keptAwake;
using sample::now;
using sample::vetoed;
using sample::withoutDaemon;
using ::testing::HasSubstr;

nodoctl::HealthFacts withFallback(nodoctl::HealthFacts facts, Date startedAt) {
  facts.forFindings.hookFallback = {
      .isActive = true, .logPath = "", .lastStartedAt = startedAt, .fallbackSeconds = 600};
  return facts;
}

class NoticeWatchTest : public ::testing::Test {
 protected:
  NoticeWatch watch;
};

TEST_F(NoticeWatchTest, TheReleaseOfTheLockByASafetyRuleIsToldOfOnce) {
  EXPECT_EQ(watch.take(keptAwake()), std::nullopt);
  const auto notice = watch.take(vetoed());
  ASSERT_TRUE(notice);
  EXPECT_EQ(notice->title, "nodo lets this computer sleep");
  EXPECT_THAT(notice->text, HasSubstr("sleep is allowed"));
  EXPECT_EQ(watch.take(vetoed()), std::nullopt);
}

TEST_F(NoticeWatchTest, ALockThatIsTakenAgainAndReleasedAgainHasACauseOfItsOwn) {
  watch.take(keptAwake());
  watch.take(vetoed());
  EXPECT_EQ(watch.take(keptAwake()), std::nullopt);
  EXPECT_TRUE(watch.take(vetoed()));
}

TEST_F(NoticeWatchTest, ATimerThatEndsIsNoNews) {
  watch.take(keptAwake());
  EXPECT_EQ(watch.take(idle()), std::nullopt);
  EXPECT_EQ(watch.take(vetoed()), std::nullopt) << "no lock was released";
}

TEST_F(NoticeWatchTest, ALockThatIsSeenToGoBeforeTheDaemonSaysSoIsTheSameCause) {
  watch.take(keptAwake());
  nodoctl::HealthFacts going = keptAwake();
  going.status.report.state.ownsSleepDisable = false;
  going.forFindings.keepAwake->report = going.status.report;
  EXPECT_EQ(watch.take(going), std::nullopt);
  EXPECT_TRUE(watch.take(vetoed()));
}

TEST_F(NoticeWatchTest, WhatWasSoBeforeTheFirstLookIsNoNews) {
  EXPECT_EQ(watch.take(withFallback(vetoed(), now)), std::nullopt);
  EXPECT_EQ(watch.take(withFallback(vetoed(), now)), std::nullopt);
}

TEST_F(NoticeWatchTest, ADaemonThatWasAwayMeanwhileNeitherHidesNorRepeatsIt) {
  watch.take(keptAwake());
  EXPECT_EQ(watch.take(withoutDaemon()), std::nullopt);
  EXPECT_TRUE(watch.take(vetoed()));
  EXPECT_EQ(watch.take(withoutDaemon()), std::nullopt);
  EXPECT_EQ(watch.take(vetoed()), std::nullopt);
}

TEST_F(NoticeWatchTest, AFallbackThatBeginsIsToldOfOnce) {
  watch.take(idle());
  const auto notice = watch.take(withFallback(withoutDaemon(), now));
  ASSERT_TRUE(notice);
  EXPECT_THAT(notice->title, HasSubstr("by itself"));
  EXPECT_THAT(notice->text, HasSubstr("lid open only"));
  EXPECT_EQ(watch.take(withFallback(withoutDaemon(), now)), std::nullopt);
}

TEST_F(NoticeWatchTest, FallbacksThatFollowOneAnotherHaveOneCause) {
  watch.take(idle());
  EXPECT_TRUE(watch.take(withFallback(idle(), now)));
  EXPECT_EQ(watch.take(withFallback(idle(), now + Seconds(600))), std::nullopt);
  EXPECT_EQ(watch.take(withFallback(idle(), now + Seconds(1200))), std::nullopt);
  EXPECT_TRUE(watch.take(withFallback(idle(), now + Seconds(1801))));
}

TEST_F(NoticeWatchTest, OfBothAtOnceTheReleaseCounts) {
  watch.take(keptAwake());
  EXPECT_EQ(watch.take(withFallback(vetoed(), now))->title, "nodo lets this computer sleep");
  EXPECT_EQ(watch.take(withFallback(vetoed(), now)), std::nullopt);
}

}  // namespace
}  // namespace nodo::menu
