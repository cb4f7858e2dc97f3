#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/control/Reports.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace nodo {
namespace {

const Date noon = dateFromSeconds(1769860800);

/// A run whose every field holds something that no empty report has.
DaemonRunReport fullRun() {
  StatusReport status;
  status.generatedAt = noon;
  status.state = NODOState::fresh(noon - Seconds(60));
  status.state.manualUntil = noon + Seconds(600);
  status.snapshot = {.now = noon, .powerSource = PowerSource::battery, .batteryPercent = 42};
  status.agents = {
      {.pid = 7, .ppid = 1, .executable = "codex", .command = "codex", .kind = AgentKind::codex}};
  status.decision = {.shouldPreventSleep = true, .reasons = {"manual_timer"}};
  status.manualRemainingSeconds = 600;
  status.noRouteGraceRemainingSeconds = 5;
  status.heatGraceRemainingSeconds = 6;
  const PowerOperationResult operation(true, false, "lock", 0, "", "");
  return {.generatedAt = noon + Seconds(1),
          .status = status,
          .operation = operation,
          .operations = {operation},
          .stateChanged = true};
}

void expectInThisOrder(const std::string& text, const std::vector<std::string>& keys) {
  std::size_t from = 0;
  for (const std::string& key : keys) {
    const std::size_t at = text.find("\"" + key + "\":", from);
    ASSERT_NE(at, std::string::npos) << key << " in " << text;
    from = at;
  }
}

TEST(ReportsJSONTest, ARunIsReadAsItWasWritten) {
  const DaemonRunReport run = fullRun();
  EXPECT_EQ(decodeJSON<DaemonRunReport>(encodeJSON(run, JSONLayout::compact)), run);
}

TEST(ReportsJSONTest, FieldsAreWrittenInTheirOrder) {
  const DaemonRunReport run = fullRun();
  expectInThisOrder(
      encodeJSON(run.status, JSONLayout::compact),
      {"generatedAt", "state", "snapshot", "agents", "decision", "manualRemainingSeconds",
       "noRouteGraceRemainingSeconds", "heatGraceRemainingSeconds"});
  expectInThisOrder(encodeJSON(run, JSONLayout::compact),
                    {"generatedAt", "status", "operation", "operations", "stateChanged"});
}

}  // namespace
}  // namespace nodo
