#include <NODOCore/daemon/DaemonLoop.h>

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

}  // namespace
}  // namespace nodo
