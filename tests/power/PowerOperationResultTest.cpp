#include <NODOCore/base/Errors.h>
#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/power/PowerManaging.h>

#include <optional>
#include <string>

#include <gtest/gtest.h>

namespace nodo {
namespace {

using Action = PowerOperationAction;

PowerOperationResult decoded(const std::string& text) {
  return decodeJSON<PowerOperationResult>(text);
}

TEST(PowerOperationResultTest, TheActionFollowsFromTheRequestUnlessItIsGiven) {
  EXPECT_EQ(PowerOperationResult(true, false, "c", 0, "", "").action, Action::disableSleep);
  EXPECT_EQ(PowerOperationResult(false, false, "c", 0, "", "").action, Action::enableSleep);
  EXPECT_EQ(PowerOperationResult(false, false, "c", 0, "", "", Action::sleepNow).action,
            Action::sleepNow);
  EXPECT_EQ(powerOperationAction(true), Action::disableSleep);
  EXPECT_EQ(powerOperationAction(false), Action::enableSleep);
}

TEST(PowerOperationResultTest, OnlyARealRunWithStatusZeroSucceeded) {
  EXPECT_TRUE(PowerOperationResult(true, false, "c", 0, "", "").succeeded());
  EXPECT_FALSE(PowerOperationResult(true, false, "c", 1, "", "").succeeded());
  EXPECT_FALSE(PowerOperationResult(true, false, "c", std::nullopt, "", "").succeeded());
  EXPECT_FALSE(PowerOperationResult(true, true, "c", 0, "", "").succeeded());
  EXPECT_FALSE(PowerOperationResult().succeeded());
}

TEST(PowerOperationResultTest, ItsJSONHasItsKeysInTheirOrder) {
  const PowerOperationResult result(true, false, "tool 1", 3, "out\n", "err");
  const std::string text =
      R"({"action":"disable_sleep","requestedSleepDisabled":true,"dryRun":false,)"
      R"("executedCommand":"tool 1","exitCode":3,"stdout":"out\n","stderr":"err"})";
  EXPECT_EQ(encodeJSON(result, JSONLayout::compact), text);
  EXPECT_EQ(decoded(text), result);
}

TEST(PowerOperationResultTest, WithoutACommandThereIsNoKeyForItNorForItsStatus) {
  const PowerOperationResult result(false, true, std::nullopt, std::nullopt, "", "");
  EXPECT_EQ(encodeJSON(result, JSONLayout::compact),
            R"({"action":"enable_sleep","requestedSleepDisabled":false,"dryRun":true,)"
            R"("stdout":"","stderr":""})");
}

TEST(PowerOperationResultTest, ARecordOfTheOlderFormIsStillRead) {
  EXPECT_EQ(
      decoded(R"({"requestedSleepDisabled":false,"dryRun":false})"),
      PowerOperationResult(false, false, std::nullopt, std::nullopt, "", "", Action::enableSleep));
  EXPECT_EQ(
      decoded(R"({"requestedSleepDisabled":true,"dryRun":true,"action":null,"stdout":null})"),
      PowerOperationResult(true, true, std::nullopt, std::nullopt, "", "", Action::disableSleep));
}

TEST(PowerOperationResultTest, AGivenActionIsNotDerived) {
  EXPECT_EQ(decoded(R"({"action":"sleep_now","requestedSleepDisabled":true,"dryRun":true})").action,
            Action::sleepNow);
}

TEST(PowerOperationResultTest, WhatIsMissingOrOfTheWrongTypeIsAnError) {
  for (const char* text : {"{}", R"({"dryRun":true})", R"({"requestedSleepDisabled":true})",
                           R"({"requestedSleepDisabled":1,"dryRun":true})",
                           R"({"requestedSleepDisabled":true,"dryRun":null})",
                           R"({"requestedSleepDisabled":true,"dryRun":true,"action":"sleep"})",
                           R"({"requestedSleepDisabled":true,"dryRun":true,"exitCode":"0"})",
                           R"({"requestedSleepDisabled":true,"dryRun":true,"exitCode":4294967296})",
                           R"({"requestedSleepDisabled":true,"dryRun":true,"stdout":5})",
                           R"({"requestedSleepDisabled":true,"dryRun":true,"stderr":[]})"}) {
    EXPECT_THROW(decoded(text), DecodingError) << text;
  }
}

}  // namespace
}  // namespace nodo
