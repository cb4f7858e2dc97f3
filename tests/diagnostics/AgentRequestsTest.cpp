#include <NODOCore/diagnostics/AgentRequests.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace nodo {
namespace {

using std::chrono::hours;
using std::chrono::minutes;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

// A daemon that has long been there, and agents that run as long as a test says.
class AgentRequestsTest : public ::testing::Test {
 protected:
  AgentRequestsTest() {
    report.generatedAt = now;
    report.state = NODOState::fresh(now - hours(48));
  }

  void start(AgentKind kind, std::int32_t pid, Seconds age, const std::string& command = "") {
    report.agents.push_back({.pid = pid, .command = command, .kind = kind});
    ages[pid] = age;
  }

  void ask(const std::string& name, Seconds ago) {
    report.state.recordRequester({name, std::nullopt, std::nullopt, now - ago}, now - ago, 6, 500);
  }

  std::vector<SilentAgent> silent() const {
    return silentAgents(report, hooked, [this](std::int32_t pid) -> std::optional<Seconds> {
      const auto found = ages.find(pid);
      return found == ages.end() ? std::nullopt : std::optional(found->second);
    });
  }

  const Date now = dateFromSeconds(1769847300);
  StatusReport report;
  std::map<std::int32_t, Seconds> ages;
  std::set<AgentHookTarget> hooked{AgentHookTarget::claude, AgentHookTarget::codex};
};

TEST_F(AgentRequestsTest, TheLastRequestOfEachAgentIsKnownByItsName) {
  ask("Claude Code", hours(2));
  ask("Codex", minutes(50));
  ask("Claude Code", minutes(7));
  ask("claude code", minutes(3));
  ask("cron", minutes(1));
  EXPECT_THAT(lastRequests(report.state), ElementsAre(Pair(AgentKind::claudeCode, now - minutes(7)),
                                                      Pair(AgentKind::codex, now - minutes(50))));
}

TEST_F(AgentRequestsTest, AnAgentThatAskedSinceItStartedIsNotSilent) {
  start(AgentKind::claudeCode, 5, minutes(45));
  ask("Claude Code", minutes(44));
  EXPECT_THAT(silent(), IsEmpty());
}

TEST_F(AgentRequestsTest, ARequestOfAnEarlierRunDoesNotCount) {
  start(AgentKind::claudeCode, 5, minutes(45));
  ask("Claude Code", minutes(46));
  ask("Codex", minutes(10));
  EXPECT_THAT(silent(), ElementsAre(SilentAgent{AgentKind::claudeCode, 5, minutes(45)}));
}

TEST_F(AgentRequestsTest, HalfAnHourIsLong) {
  start(AgentKind::codex, 5, Seconds(1799));
  EXPECT_THAT(silent(), IsEmpty());
  ages[5] = Seconds(1800);
  EXPECT_EQ(silent().size(), 1U);
}

TEST_F(AgentRequestsTest, TheOldestProcessOfAnAgentCounts) {
  start(AgentKind::codex, 5, minutes(10));
  start(AgentKind::codex, 6, minutes(90));
  start(AgentKind::codex, 7, minutes(40));
  EXPECT_THAT(silent(), ElementsAre(SilentAgent{AgentKind::codex, 6, minutes(90)}));
}

TEST_F(AgentRequestsTest, NoLongerIsToldThanTheStateRemembers) {
  start(AgentKind::codex, 5, hours(100));
  EXPECT_EQ(silent().at(0).span, hours(12));
  report.state.createdAt = now - minutes(40);
  EXPECT_EQ(silent().at(0).span, minutes(40));
  report.state.createdAt = now - minutes(20);
  EXPECT_THAT(silent(), IsEmpty());
}

TEST_F(AgentRequestsTest, WhoeverHasNoHooksOrIsSomebodyElsesIsNotExpectedToAsk) {
  start(AgentKind::pi, 5, hours(2));
  report.agents.push_back({.pid = 6, .kind = AgentKind::codex});
  EXPECT_THAT(silent(), IsEmpty());
}

TEST_F(AgentRequestsTest, AProcessThatOnlyServesOthersIsNotExpectedToAsk) {
  start(AgentKind::codex, 5, hours(2), "/usr/bin/codex app-server --listen unix://");
  EXPECT_THAT(silent(), IsEmpty());
  start(AgentKind::codex, 6, hours(1), "/usr/bin/codex --model x");
  EXPECT_THAT(silent(), ElementsAre(SilentAgent{AgentKind::codex, 6, hours(1)}));
}

}  // namespace
}  // namespace nodo
