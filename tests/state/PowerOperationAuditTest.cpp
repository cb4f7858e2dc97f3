#include <NODOCore/base/Errors.h>
#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/state/NODOState.h>

#include <optional>
#include <string>

#include <gtest/gtest.h>

namespace nodo {
namespace {

const Date noon = dateFromSeconds(1769860800);

TEST(PowerOperationAuditTest, ItKeepsWhatWasDoneWithoutTheOutput) {
  const PowerOperationResult result(true, false, "tool 1", 3, "out", "err");
  EXPECT_EQ(PowerOperationAudit(result, noon, "enable:manual_timer"),
            PowerOperationAudit(PowerOperationAction::disableSleep, noon, "enable:manual_timer",
                                false, 3, "tool 1"));
  const PowerOperationResult simulated(false, true, std::nullopt, std::nullopt, "", "",
                                       PowerOperationAction::sleepNow);
  EXPECT_EQ(PowerOperationAudit(simulated, noon, std::nullopt),
            PowerOperationAudit(PowerOperationAction::sleepNow, noon, std::nullopt, true,
                                std::nullopt, std::nullopt));
}

TEST(PowerOperationAuditTest, ItsJSONHasItsKeysInTheirOrder) {
  const PowerOperationAudit full(PowerOperationAction::enableSleep, noon, "release:user_stop",
                                 false, 0, "tool 0");
  EXPECT_EQ(encodeJSON(full, JSONLayout::compact),
            R"({"action":"enable_sleep","occurredAt":"2026-01-31T12:00:00Z",)"
            R"("reason":"release:user_stop","dryRun":false,"exitCode":0,"command":"tool 0"})");
  const PowerOperationAudit bare(PowerOperationAction::sleepNow, noon, std::nullopt, true,
                                 std::nullopt, std::nullopt);
  EXPECT_EQ(encodeJSON(bare, JSONLayout::compact),
            R"({"action":"sleep_now","occurredAt":"2026-01-31T12:00:00Z","dryRun":true})");
  EXPECT_EQ(decodeJSON<PowerOperationAudit>(encodeJSON(full, JSONLayout::compact)), full);
  EXPECT_EQ(decodeJSON<PowerOperationAudit>(encodeJSON(bare, JSONLayout::compact)), bare);
}

TEST(PowerOperationAuditTest, ActionTimeAndDryRunAreRequired) {
  for (
      const char* text :
      {R"({"occurredAt":"2026-01-31T12:00:00Z","dryRun":true})",
       R"({"action":"sleep_now","dryRun":true})",
       R"({"action":"sleep_now","occurredAt":"2026-01-31T12:00:00Z"})",
       R"({"action":"SLEEP_NOW","occurredAt":"2026-01-31T12:00:00Z","dryRun":true})",
       R"({"action":"sleep_now","occurredAt":"2026-01-31T12:00:00Z","dryRun":0})",
       R"({"action":"sleep_now","occurredAt":"2026-01-31T12:00:00Z","dryRun":true,"exitCode":2147483648})"}) {
    EXPECT_THROW(decodeJSON<PowerOperationAudit>(text), DecodingError) << text;
  }
}

}  // namespace
}  // namespace nodo
