#include <NODOCore/hooks/AgentHookLogInspector.h>

#include <cstdint>
#include <limits>
#include <optional>

#include <gtest/gtest.h>

namespace nodo {
namespace {

const Date start = dateFromSeconds(1769842800);

std::optional<std::int64_t> minutesLeft(std::int64_t fallbackSeconds, double after) {
  return HookFallbackRecoveryPolicy::remainingMinutes({.isActive = true,
                                                       .logPath = "/log",
                                                       .lastStartedAt = start,
                                                       .fallbackSeconds = fallbackSeconds},
                                                      start + Seconds(after));
}

TEST(HookFallbackRecoveryPolicyTest, StartedMinutesCountWhole) {
  EXPECT_EQ(minutesLeft(600, 0), 10);
  EXPECT_EQ(minutesLeft(600, 0.5), 10);
  EXPECT_EQ(minutesLeft(600, 60), 9);
  EXPECT_EQ(minutesLeft(600, 60.5), 9);
  EXPECT_EQ(minutesLeft(1200, 900), 5);
}

TEST(HookFallbackRecoveryPolicyTest, TheLastInstantIsStillAMinute) {
  EXPECT_EQ(minutesLeft(600, 599), 1);
  EXPECT_EQ(minutesLeft(600, 599.999), 1);
}

TEST(HookFallbackRecoveryPolicyTest, NothingIsLeftOfOneThatRanOut) {
  EXPECT_EQ(minutesLeft(600, 600), std::nullopt);
  EXPECT_EQ(minutesLeft(600, 4000), std::nullopt);
  EXPECT_EQ(minutesLeft(0, 0), std::nullopt);
}

TEST(HookFallbackRecoveryPolicyTest, NothingIsLeftOfOneThatIsNotActive) {
  AgentHookFallbackStatus status{.lastStartedAt = start};
  EXPECT_EQ(HookFallbackRecoveryPolicy::remainingMinutes(status, start), std::nullopt);
}

TEST(HookFallbackRecoveryPolicyTest, WithoutAStartThereIsNothingToCountFrom) {
  AgentHookFallbackStatus status{.isActive = true};
  EXPECT_EQ(HookFallbackRecoveryPolicy::remainingMinutes(status, start), std::nullopt);
}

TEST(HookFallbackRecoveryPolicyTest, AnAbsurdDurationIsCountedAllTheSame) {
  constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
  EXPECT_NEAR(static_cast<double>(minutesLeft(largest, 0).value()),
              static_cast<double>(largest) / 60, 1000);
}

}  // namespace
}  // namespace nodo
