// The installed hook script searches the health check for its lines. These tests hand the report as
// it is really printed to the script as it is really installed, under bash, so that neither can
// change without the other.

#include <NODOCore/diagnostics/DoctorReport.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <tests/hooks/HookScriptFixture.h>

namespace nodo::test {
namespace {

using Lines = std::vector<std::string>;
using Source = DoctorStatusSource;

class DoctorReportForHooksTest : public HookScriptFixture {
 protected:
  // What the script logs first when the doctor answers with this report.
  std::string scriptSays(const StatusReport& report, Source source = Source::helper,
                         std::optional<bool> live = std::nullopt) {
    set("HOOK_TEST_REPORT",
        DoctorReportFormatter::format(report, source, live, std::nullopt, std::nullopt));
    std::filesystem::remove(folder() / "stamp");
    std::filesystem::remove(folder() / "log");
    run();
    const Lines messages = log();
    return messages.empty() ? "nothing" : messages.front();
  }

  const std::string active = "nodo active minutes=20 requester=Agent context=project event=";
  const std::string fallback = "helper unavailable; using fallback";
  const std::string off = "nodo helper reachable but sleep lock is off";
};

TEST_F(DoctorReportForHooksTest, TheScriptFindsALocalReading) {
  EXPECT_EQ(scriptSays({}, Source::local), fallback);
  StatusReport locked;
  locked.state.ownsSleepDisable = true;
  locked.decision.shouldPreventSleep = true;
  EXPECT_EQ(scriptSays(locked, Source::local, true), fallback);
}

TEST_F(DoctorReportForHooksTest, TheScriptFindsThatNodoIsActive) {
  StatusReport report;
  report.manualRemainingSeconds = 1200;
  EXPECT_EQ(scriptSays(report), active);
  report.manualRemainingSeconds.reset();
  report.decision.shouldPreventSleep = true;
  EXPECT_EQ(scriptSays(report), active);
}

TEST_F(DoctorReportForHooksTest, TheScriptFindsThatTheMachinesSleepIsDisabled) {
  EXPECT_EQ(scriptSays({}, Source::helper, true), active);
}

TEST_F(DoctorReportForHooksTest, TheScriptFindsNoneOfThemWhereNothingKeepsTheMachineAwake) {
  EXPECT_EQ(scriptSays({}, Source::helper, false), off);
  EXPECT_EQ(scriptSays({}, Source::helper, std::nullopt), off);
}

TEST_F(DoctorReportForHooksTest, TheNameOfAnExecutableCannotPassForALine) {
  StatusReport report;
  report.agents = {{.pid = 1,
                    .ppid = std::nullopt,
                    .executable = "/tmp/x\nStatus: active",
                    .command = "",
                    .kind = AgentKind::pi}};
  EXPECT_EQ(scriptSays(report), off);
}

}  // namespace
}  // namespace nodo::test
