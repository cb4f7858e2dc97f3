#include <NODOCore/base/Text.h>
#include <NODOCore/state/NODOState.h>
#include <testing/EnvironmentVariable.h>

#include <gmock/gmock.h>

#include <tests/programs/nodoctl/FakeTerminal.h>
#include <tests/programs/nodoctl/ToolFixture.h>

namespace nodo::nodoctl {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

// The history of a daemon as a person is shown it.
class HistoryCommandTest : public ToolFixture {
 protected:
  HistoryCommandTest() {
    startDaemon();
    environment["LANG"] = "C.UTF-8";
  }

  NODOState& state() { return helper->status.state; }

  Date ago(double minutes) const { return now - Seconds(minutes * 60); }

  void request(double minutes, const std::string& name,
               const std::optional<std::string>& context = {}) {
    state().recordRequester({name, context, std::nullopt, now}, ago(minutes), 6, 500);
  }

  void operation(double minutes, PowerOperationAction action, const std::string& reason,
                 std::optional<std::int32_t> exitCode = 0, bool dryRun = false) {
    state().powerOperationHistory.emplace_back(action, ago(minutes), reason, dryRun, exitCode,
                                               std::nullopt);
  }

  // Two hours of an agent, in which the battery runs low.
  void aMorning() {
    for (int minutes = 120; minutes > 60; minutes -= 4) {
      request(minutes, "Claude Code", "shop - session 4f1c2a9e");
    }
    request(30, "Codex");
    operation(120, PowerOperationAction::disableSleep, "enable:manual_timer");
    operation(60, PowerOperationAction::enableSleep, "release:battery_below_threshold");
    operation(60, PowerOperationAction::sleepNow, "closed_lid_release", 1);
    operation(30, PowerOperationAction::disableSleep, "enable:manual_timer");
    state().ownsSleepDisable = true;
  }

  void expectFits(std::size_t columns) {
    for (const char* span : {"1m", "12h", "168h"}) {
      std::istringstream lines(run({"history", "--since", span}).output);
      for (std::string line; std::getline(lines, line);) {
        EXPECT_EQ(firstColumns(line, columns), line);
      }
    }
  }

  const test::EnvironmentVariable zone{"TZ", "CET-1"};
};

TEST_F(HistoryCommandTest, TheLineOfTimeIsFollowedByRequestsAndOperations) {
  aMorning();
  const Outcome outcome = run({"history", "--since", "4h"});
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_EQ(outcome.error, "");
  EXPECT_EQ(outcome.output,
            R"(nodo held its sleep lock for 1 h 30 min in the last 4 h.

Requests  ···································██████·██████·███·········█········
Lock      ···································██████████████████········█████████
Vetoes    ····················································▒▒▒▒▒▒▒▒▒▒········
          05:15                              07:15                           now
Requests: the higher, the more. Lock: █ held, · not held. Vetoes: ▒ a safety
    rule allowed sleep.

Requests:
  07:15 to 08:11  Claude Code - shop - session 4f1c2a9e (15 times)
  08:45  Codex

Sleep lock:
  07:15  taken: the timer runs (enable:manual_timer)
  08:15  released: the battery is low (release:battery_below_threshold)
  08:15  asking for sleep FAILED (exit 1): the lid is closed
    (closed_lid_release)
  08:45  taken: the timer runs (enable:manual_timer)
)");
}

TEST_F(HistoryCommandTest, WithoutUTF8EverythingIsASCII) {
  aMorning();
  request(20, "Zoë");
  environment["LANG"] = "C";
  environment["COLUMNS"] = "40";
  const std::string output = run({"history", "--since", "4h"}).output;
  EXPECT_TRUE(std::all_of(output.begin(), output.end(), [](char each) { return each > 0; }))
      << output;
  EXPECT_THAT(output, HasSubstr("\nLock      ...............========...====\n"));
  EXPECT_THAT(output, HasSubstr("\nVetoes    ......................xxxxx...\n"));
  EXPECT_THAT(output, HasSubstr("  08:55  Zo?\n"));
  EXPECT_THAT(output, HasSubstr("= held, . not held"));
}

TEST_F(HistoryCommandTest, NoLineIsWiderThanTheTerminal) {
  aMorning();
  request(20, std::string(200, 'x'),
          "\u4E2D\u6587\u4E2D\u6587\u4E2D\u6587\u4E2D\u6587\u4E2D\u6587");
  request(10, "a\x1b[2J\u202Eb", "\U0001F469\u200D\U0001F467 and\nmore");
  operation(5, PowerOperationAction::enableSleep, "release:" + std::string(300, 'w'));
  for (const int columns : {200, 80, 40, 24}) {
    environment["COLUMNS"] = std::to_string(columns);
    expectFits(static_cast<std::size_t>(columns));
  }
  environment.erase("COLUMNS");
  const auto narrow = std::make_shared<FakeTerminal>();
  narrow->dimensions = {.columns = 40, .rows = 24};
  terminal = narrow;
  environment["TERM"] = "dumb";
  expectFits(40);
}

TEST_F(HistoryCommandTest, ForeignTextsAreShownEscaped) {
  request(10, "a\x1b[2J\u202Eb");
  operation(5, PowerOperationAction::enableSleep, "release:\x1b]0;x\x07");
  const std::string output = run({"history"}).output;
  EXPECT_THAT(output, HasSubstr("a\\u{1b}[2J\\u{202e}b"));
  EXPECT_THAT(output, HasSubstr(" (release:\\u{1b}]0;x\\u{7})\n"));
  EXPECT_THAT(output, Not(HasSubstr("\x1b")));
}

TEST_F(HistoryCommandTest, ColoursAreForTerminalsThatWantThem) {
  aMorning();
  EXPECT_THAT(run({"history"}).output, Not(HasSubstr("\x1b")));
  terminal = std::make_shared<FakeTerminal>();
  environment["TERM"] = "xterm";
  EXPECT_THAT(run({"history"}).output, HasSubstr("\x1b[32mLock "));
  environment["NO_COLOR"] = "1";
  EXPECT_THAT(run({"history"}).output, Not(HasSubstr("\x1b")));
}

TEST_F(HistoryCommandTest, AnEmptyHistorySaysSo) {
  EXPECT_EQ(run({"history"}).output,
            "Nothing happened in the last 12 h: no requests, and no sleep lock of nodo's.\n");
}

TEST_F(HistoryCommandTest, WhatIsNotRecordedIsSaid) {
  operation(120, PowerOperationAction::enableSleep, "release:user_stop");
  request(100, "Codex");
  const std::string output = run({"history", "--since", "4h"}).output;
  EXPECT_THAT(output, HasSubstr("nodo did not hold its sleep lock in the last 4 h, as far as is "
                                "recorded\n    (since 07:15).\n"));
  EXPECT_THAT(output, HasSubstr("\nLock      ???????????????????????????????????····"));
  EXPECT_THAT(output, HasSubstr(", ? not recorded."));
  EXPECT_THAT(output, HasSubstr("\n  before 07:15: not recorded\n"));
  EXPECT_THAT(run({"history", "--since", "24h"}).output,
              HasSubstr("\n  before 01-30 19:35: not recorded one by one\n"));
}

TEST_F(HistoryCommandTest, WhatWasOnlySimulatedIsSaid) {
  operation(5, PowerOperationAction::disableSleep, "enable:manual_timer", std::nullopt, true);
  const std::string output = run({"history"}).output;
  EXPECT_THAT(output, HasSubstr("nodo did not hold its sleep lock in the last 12 h.\n"));
  EXPECT_THAT(output, HasSubstr("  09:10  taken, only simulated: the timer runs"));
}

TEST_F(HistoryCommandTest, ALockWhoseEndIsUnknownCountsOnlyAsFarAsItIsKnown) {
  operation(120, PowerOperationAction::disableSleep, "enable:manual_timer");
  operation(60, PowerOperationAction::disableSleep, "enable:manual_timer");
  state().ownsSleepDisable = true;
  const std::string output = run({"history", "--since", "4h"}).output;
  EXPECT_THAT(output, HasSubstr("for at least 1 h in the last 4 h."));
  EXPECT_THAT(output, HasSubstr("·█????????????????██████████████████\n"));
}

TEST_F(HistoryCommandTest, ForProgramsItIsADocument) {
  aMorning();
  const JSONValue document = runJSON({"history", "--json", "--since", "90m"});
  EXPECT_EQ(*document.member("since")->text(), "2026-01-31T06:45:00Z");
  EXPECT_EQ(*document.member("until")->text(), "2026-01-31T08:15:00Z");
  EXPECT_EQ(*document.member("statusSource")->text(), "helper");
}

TEST_F(HistoryCommandTest, WithoutADaemonItIsThatOfTheOwnState) {
  helper->refusal = "nobody there";
  run({"manual", "--minutes", "5", "--requester", "Ada"});
  const Outcome outcome = run({"history"});
  EXPECT_TRUE(outcome.saidLocal);
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_TRUE(outcome.output.starts_with("Your own state, which switches no sleep lock:\n"));
  EXPECT_THAT(outcome.output, HasSubstr("  09:15  Ada\n"));
  const Outcome asJSON = run({"history", "--json"});
  EXPECT_EQ(*JSONValue::parse(asJSON.output).member("statusSource")->text(), "local");
}

}  // namespace
}  // namespace nodo::nodoctl
