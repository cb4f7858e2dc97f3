#include <NODOCore/daemon/DaemonLoop.h>

#include <optional>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace nodo {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(NewsBurstTest, OnlyTheFirstNewsBeginABurst) {
  NewsBurst burst;
  EXPECT_TRUE(burst.add(News::route));
  EXPECT_FALSE(burst.add(News::route));
  EXPECT_FALSE(burst.add(News::lid));
  burst.take();
  EXPECT_TRUE(burst.add(News::lid));
}

TEST(NewsBurstTest, NewsAreTakenOnceEachInTheOrderInWhichTheyCame) {
  NewsBurst burst;
  for (const News news :
       {News::route, News::lid, News::route, News::powerSupply, News::resume, News::lid}) {
    burst.add(news);
  }
  EXPECT_THAT(burst.take(), ElementsAre(News::route, News::lid, News::powerSupply, News::resume));
  EXPECT_THAT(burst.take(), IsEmpty());
}

TEST(NewsBurstTest, TheLogNamesThem) {
  EXPECT_EQ(listed({News::lid, News::powerSupply}), "lid, power supply");
  EXPECT_EQ(listed({News::resume}), "resume");
}

TEST(AnnouncementPaceTest, TheFirstIsMadeAtOnceAndWhatFollowsSoonWaitsForTheEndOfTheInterval) {
  AnnouncementPace pace;
  const Seconds begin(0);
  EXPECT_EQ(pace.delay(begin), Seconds(0));
  pace.made(begin);
  EXPECT_EQ(pace.delay(begin + Seconds(0.025)), AnnouncementPace::interval - Seconds(0.025));
  EXPECT_EQ(pace.delay(begin + Seconds(0.075)), std::nullopt) << "one is under way";
  pace.made(begin + AnnouncementPace::interval);
  EXPECT_EQ(pace.delay(begin + Seconds(60)), Seconds(0));
}

TEST(AnnouncementPaceTest, AFloodBecomesTenASecondAndItsLastChangeIsNotForgotten) {
  AnnouncementPace pace;
  std::optional<Seconds> due;
  std::vector<int> told;
  for (int change = 0; change <= 1000; ++change) {
    const Seconds now(change / 1000.0);
    if (due && *due <= now) {
      pace.made(now);
      told.push_back(change);
      due.reset();
    }
    if (const auto delay = pace.delay(now)) {
      due = now + *delay;
    }
  }
  EXPECT_LE(told.size(), 11U);
  EXPECT_GE(told.size(), 9U);
  EXPECT_TRUE(due) << "the last";
}

}  // namespace
}  // namespace nodo
