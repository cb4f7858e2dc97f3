#include <NODOCore/base/Files.h>
#include <NODOCore/hooks/HookPause.h>
#include <testing/TemporaryFolder.h>

#include <filesystem>
#include <optional>
#include <string>

#include <gtest/gtest.h>

namespace nodo {
namespace {

class HookPauseTest : public ::testing::Test {
 protected:
  std::optional<Date> paused() const { return hooksPausedUntil(home.path(), now); }

  void stampIs(const std::string& content) const {
    makeFolder(stamp.parent_path());
    replaceFile(stamp, content);
  }

  test::TemporaryFolder home;
  std::filesystem::path stamp = home / ".nodo" / "last-extend.stamp";
  Date now = dateFromSeconds(1769847300);
};

TEST_F(HookPauseTest, WithoutAStampNothingIsPaused) {
  EXPECT_EQ(paused(), std::nullopt);
}

TEST_F(HookPauseTest, APauseIsSeenUntilItsEnd) {
  const Date end = now + std::chrono::minutes(60);
  pauseHooks(home.path(), end);
  EXPECT_EQ(paused(), end);
  EXPECT_EQ(hooksPausedUntil(home.path(), end - Seconds(121)), end);
  EXPECT_EQ(hooksPausedUntil(home.path(), end), std::nullopt);
}

TEST_F(HookPauseTest, AStampLetsTheScriptAskAtTheEndOfThePauseAndNotBefore) {
  pauseHooks(home.path(), now + std::chrono::minutes(60));
  EXPECT_EQ(readFile(stamp), "1769850780\n");  // 120 seconds before the end
}

TEST_F(HookPauseTest, AFurtherPauseReplacesTheOneThatRuns) {
  pauseHooks(home.path(), now + std::chrono::minutes(60));
  pauseHooks(home.path(), now + std::chrono::minutes(5));
  EXPECT_EQ(paused(), now + std::chrono::minutes(5));
}

TEST_F(HookPauseTest, AThrottleIsThatOfARequest) {
  throttleHooks(home.path(), now);
  EXPECT_EQ(readFile(stamp), "1769847300\n");
  EXPECT_EQ(paused(), std::nullopt);
}

TEST_F(HookPauseTest, AThrottleReplacesAnEarlierRequestAndTheEndOfAPause) {
  for (const char* before : {"1769847200\n", "1769847300\n", "99999999999\n", "soon"}) {
    stampIs(before);
    throttleHooks(home.path(), now);
    EXPECT_EQ(readFile(stamp), "1769847300\n") << before;
  }
}

TEST_F(HookPauseTest, AThrottleShortensNoPause) {
  pauseHooks(home.path(), now + Seconds(121));
  throttleHooks(home.path(), now);
  EXPECT_EQ(paused(), now + Seconds(121));
}

TEST_F(HookPauseTest, AfterAResumptionNothingIsPaused) {
  pauseHooks(home.path(), now + std::chrono::minutes(60));
  resumeHooks(home.path());
  EXPECT_EQ(paused(), std::nullopt);
  EXPECT_FALSE(std::filesystem::exists(stamp));
}

TEST_F(HookPauseTest, AResumptionWithoutAPauseDoesNoHarm) {
  EXPECT_NO_THROW(resumeHooks(home.path()));
  EXPECT_FALSE(std::filesystem::exists(home / ".nodo"));
}

TEST_F(HookPauseTest, TheStampOfARequestIsNoPause) {
  stampIs("1769847300\n");
  EXPECT_EQ(paused(), std::nullopt);
}

TEST_F(HookPauseTest, AStampBeyondTheLongestPauseIsNone) {
  stampIs(std::to_string(1769847300 + mostPauseMinutes * 60) + "\n");
  EXPECT_NE(paused(), std::nullopt);
  stampIs(std::to_string(1769847300 + mostPauseMinutes * 60 + 1) + "\n");
  EXPECT_EQ(paused(), std::nullopt);
}

TEST_F(HookPauseTest, AStampThatIsNoNumberIsNone) {
  for (const char* content : {"", "soon", "99999999999999999999999", "-5", "1769850780 or so"}) {
    stampIs(content);
    EXPECT_EQ(paused(), std::nullopt) << content;
  }
}

TEST_F(HookPauseTest, AStampThatCannotBeReadIsNone) {
  std::filesystem::create_directories(stamp);
  EXPECT_EQ(paused(), std::nullopt);
  EXPECT_THROW(pauseHooks(home.path(), now + std::chrono::minutes(60)), std::system_error);
  EXPECT_THROW(throttleHooks(home.path(), now), std::system_error);
  EXPECT_THROW(resumeHooks(home.path()), std::system_error);
}

}  // namespace
}  // namespace nodo
