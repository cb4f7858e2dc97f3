#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/diagnostics/SleepDiagnostics.h>
#include <testing/JSONRows.h>
#include <testing/ScriptedCommandRunner.h>

#include <cerrno>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include <gtest/gtest.h>

namespace nodo {
namespace {

using test::memberOf;
using test::optionalOf;
using test::ScriptedCommandRunner;
using test::testRows;
using test::valueOf;

using CommandLines = std::vector<std::string>;
using Statuses = std::map<std::string, bool>;
using Inspector = SleepDiagnosticsInspector;

const Date noon = dateFromSeconds(1769860800);

SleepDiagnosticsReport parseLive(const std::string& text) {
  return Inspector::parse(text, "", noon);
}

SleepDiagnosticsReport parseAssertions(const std::string& text) {
  return Inspector::parse("", text, noon);
}

SleepBlocker placeholder(const std::string& rawLine) {
  SleepBlocker blocker;
  blocker.rawLine = rawLine;
  return blocker;
}

class SleepDiagnosticsInspectorTest : public ::testing::Test {
 protected:
  std::shared_ptr<ScriptedCommandRunner> runner = std::make_shared<ScriptedCommandRunner>();
  Inspector inspector{runner};
};

TEST_F(SleepDiagnosticsInspectorTest, BothToolsAreRunAndRead) {
  runner->answer("/usr/bin/pmset -g live", " SleepDisabled\t\t1\n sleep   1 (prevented)\n", 1, "x");
  runner->answer("/usr/bin/pmset -g assertions",
                 "Assertion status system-wide:\n   UserIsActive   1\nListed by owning process:\n"
                 "   pid 1(a): [0x1] 00:00:01 PreventSystemSleep named: \"n\" \n",
                 1, "y");
  const SleepDiagnosticsReport expected{
      .generatedAt = noon,
      .sleepDisabled = true,
      .sleepLine = "sleep   1 (prevented)",
      .displaySleepLine = std::nullopt,
      .assertionStatuses = {{"UserIsActive", true}},
      .blockers = {{.pid = 1,
                    .processName = "a",
                    .duration = "00:00:01",
                    .assertionType = "PreventSystemSleep",
                    .assertionName = "n",
                    .scope = SleepBlockerScope::systemSleep,
                    .rawLine = "pid 1(a): [0x1] 00:00:01 PreventSystemSleep named: \"n\""}}};
  EXPECT_EQ(inspector.report(noon), expected);
  EXPECT_EQ(runner->commandLines(),
            (CommandLines{"/usr/bin/pmset -g live", "/usr/bin/pmset -g assertions"}));
}

TEST_F(SleepDiagnosticsInspectorTest, AToolThatCannotBeStartedIsAnError) {
  runner->removeTool("/usr/bin/pmset");
  EXPECT_THROW(inspector.report(noon), std::system_error);
  EXPECT_EQ(runner->commandLines(), CommandLines{"/usr/bin/pmset -g live"});
}

TEST_F(SleepDiagnosticsInspectorTest, ToolsThatSayNothingGiveAnEmptyReport) {
  EXPECT_EQ(inspector.report(noon), SleepDiagnosticsReport{.generatedAt = noon});
}

TEST_F(SleepDiagnosticsInspectorTest, WholeOutputsAreRead) {
  for (const JSONValue& row : testRows("vectors/sleep_diagnostics.json")) {
    const JSONValue& expected = memberOf(row, "expected");
    const SleepDiagnosticsReport report = Inspector::parse(
        valueOf<std::string>(row, "live"), valueOf<std::string>(row, "assertions"), noon);
    SCOPED_TRACE(valueOf<std::string>(row, "case"));
    EXPECT_EQ(report.generatedAt, noon);
    EXPECT_EQ(report.sleepDisabled, optionalOf<bool>(expected, "sleepDisabled"));
    EXPECT_EQ(report.sleepLine, optionalOf<std::string>(expected, "sleepLine"));
    EXPECT_EQ(report.displaySleepLine, optionalOf<std::string>(expected, "displaySleepLine"));
    EXPECT_EQ(report.assertionStatuses, valueOf<Statuses>(expected, "assertionStatuses"));
    EXPECT_EQ(encodeJSON(report.blockers, JSONLayout::compact),
              jsonText(memberOf(expected, "blockers"), JSONLayout::compact));
  }
}

TEST_F(SleepDiagnosticsInspectorTest, SingleAssertionLinesAreRead) {
  for (const JSONValue& row : testRows("vectors/assertion_lines.json")) {
    const auto line = valueOf<std::string>(row, "line");
    EXPECT_EQ(encodeJSON(Inspector::parseBlocker(line), JSONLayout::compact),
              jsonText(memberOf(row, "expected"), JSONLayout::compact))
        << line;
  }
}

TEST_F(SleepDiagnosticsInspectorTest, TheFirstLineWithAValueTellsTheLock) {
  const struct {
    const char* live;
    std::optional<bool> expected;
  } cases[] = {
      {" SleepDisabled\t\t1", true},
      {"SleepDisabled 0", false},
      {"SleepDisabled", std::nullopt},
      {"SleepDisabled\nSleepDisabled\t1", true},
      {"SleepDisabled 1 0", true},
      {"SleepDisabled 01", false},
      {"SleepDisabled 1\u0301", false},
      {"sleepdisabled 1", std::nullopt},
      {"x SleepDisabled 1", std::nullopt},
      {"SleepDisabled\r1", std::nullopt},
      {"SleepDisabled 1\r\nSleepDisabled 0\r\n", true},
      {"\xFF\nSleepDisabled 1", true},
  };

  for (const auto& each : cases) {
    EXPECT_EQ(parseLive(each.live).sleepDisabled, each.expected) << each.live;
  }
}

TEST_F(SleepDiagnosticsInspectorTest, ASettingIsItsWholeLineWithoutTheBlanksAround) {
  const SleepDiagnosticsReport report = parseLive(
      "Currently in use:\n sleepservices 1\n sleep\t\t1 (sleep prevented by x)  \n sleep 9\n"
      " displaysleep   10\t\n");
  EXPECT_EQ(report.sleepLine, "sleep\t\t1 (sleep prevented by x)");
  EXPECT_EQ(report.displaySleepLine, "displaysleep   10");
}

TEST_F(SleepDiagnosticsInspectorTest, AnotherWordIsAnotherSetting) {
  for (const char* live : {"sleep", "sleep ", "Sleep 1", "sleepservices 1", "disksleep 1",
                           "sleep=1", "sleep\u00A01", "sleep \u0301", "x sleep 1"}) {
    EXPECT_EQ(parseLive(live).sleepLine, std::nullopt) << live;
  }
}

TEST_F(SleepDiagnosticsInspectorTest, FlagsStandBetweenTheirTitleAndTheList) {
  EXPECT_EQ(
      parseAssertions("A 1\n\tAssertion status system-wide: \n B 1\n C 0\n D yes\n E\n F 1 1\n"
                      "  Listed by owning process:\n G 1\n")
          .assertionStatuses,
      (Statuses{{"B", true}, {"C", false}, {"D", false}}));
}

TEST_F(SleepDiagnosticsInspectorTest, TheLaterOfTwoEqualFlagsCounts) {
  EXPECT_EQ(
      parseAssertions("Assertion status system-wide:\nA 0\nA 1\nB 1\nB 2\n").assertionStatuses,
      (Statuses{{"A", true}, {"B", false}}));
}

TEST_F(SleepDiagnosticsInspectorTest, WithoutTheirTitleThereAreNoFlags) {
  EXPECT_EQ(parseAssertions("Listed by owning process:\n A 1\n").assertionStatuses, Statuses{});
  EXPECT_EQ(parseAssertions("Assertion status system-wide\n A 1\n").assertionStatuses, Statuses{});
  EXPECT_EQ(parseAssertions("x Assertion status system-wide:\n A 1\n").assertionStatuses,
            Statuses{});
}

TEST_F(SleepDiagnosticsInspectorTest, AListBeforeTheTitleGivesNoFlags) {
  EXPECT_EQ(parseAssertions("Listed by owning process:\n A 1\n pid 5\n").assertionStatuses,
            Statuses{});
  EXPECT_EQ(parseAssertions("Listed by owning process:\nAssertion status system-wide:\nA 1\n")
                .assertionStatuses,
            (Statuses{{"A", true}}));
}

TEST_F(SleepDiagnosticsInspectorTest, NoLineOfAProcessIsEverDropped) {
  for (const std::string line :
       {"pid x", "pid 5(a)", "pid 5(): [x] 1 T named: \"n\"", "pid 5(a): [] 1 T named: \"n\"",
        "pid 5(a): [x] 1:x T named: \"n\"", "pid 5(a): [x] 1 T named: n",
        "pid 5(a): [x] 1 T named: \"n", "pid 5(a): [x] 1 T-U named: \"n\"",
        "pid 5 (a): [x] 1 T named: \"n\"", "pid 5(a): [x] 1 T NAMED: \"n\"",
        "pid -5(a): [x] 1 T named: \"n\"", "pid \xFF"}) {
    EXPECT_EQ(parseAssertions(" \t" + line + " \t").blockers, std::vector{placeholder(line)})
        << line;
  }
}

TEST_F(SleepDiagnosticsInspectorTest, OtherLinesAreNoBlockers) {
  for (const char* line :
       {"pid", "pid\t5", "PID 5", "xpid 5", "\u00A0pid 5", "pid \u0301", "Resources: audio-out"}) {
    EXPECT_TRUE(parseAssertions(line).blockers.empty()) << line;
  }
}

TEST_F(SleepDiagnosticsInspectorTest, AProcessNumberThatDoesNotFitReadsAsZero) {
  const auto blockers =
      parseAssertions("pid 99999999999999999999(a): [x] 1 T named: \"n\"").blockers;
  ASSERT_EQ(blockers.size(), 1U);
  EXPECT_EQ(blockers[0].pid, 0);
  EXPECT_EQ(blockers[0].processName, "a");
}

TEST_F(SleepDiagnosticsInspectorTest, TheNamePlaysNoPartInTheScope) {
  const auto blockers =
      parseAssertions("pid 1(a): [x] 1 PreventUserIdleSleep named: \"PreventSystemSleep\"")
          .blockers;
  ASSERT_EQ(blockers.size(), 1U);
  EXPECT_EQ(blockers[0].scope, SleepBlockerScope::other);
}

// Any process may name its assertion as it likes, so nobody's name may hang or crash the doctor.
TEST_F(SleepDiagnosticsInspectorTest, HostileLinesOfMegabytesAreRead) {
  for (const std::size_t size : {std::size_t{1000000}, std::size_t{2000000}}) {
    const std::string letters(size, 'a');
    std::string pids;
    while (pids.size() < size) {
      pids += "pid 5(a): [x] 1 T ";
    }
    pids.pop_back();
    for (const std::string& line :
         {"pid 5(" + letters, "pid 5(a): [" + letters, "pid 5(a): [x] 1 T named: \"" + letters,
          "pid " + std::string(size, '1'), "pid 5(a):" + std::string(size, ' ') + "x",
          "pid " + std::string(size, '('), pids}) {
      EXPECT_EQ(parseAssertions(line).blockers, std::vector{placeholder(line)})
          << line.substr(0, 40);
    }
    const std::string named = "pid 5(a): [x] 1 T named: \"" + letters + "\"";
    EXPECT_EQ(parseAssertions(named).blockers.at(0).assertionName, letters);
    EXPECT_EQ(parseLive("sleep " + letters).sleepLine, "sleep " + letters);
    EXPECT_EQ(parseLive(std::string(size, '\n') + "SleepDisabled 1").sleepDisabled, true);
  }
}

}  // namespace
}  // namespace nodo
