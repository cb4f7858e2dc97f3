#include <NODOCore/daemon/ToolWatch.h>

#include <map>
#include <string>

#include <tests/daemon/DaemonFixture.h>

namespace nodo {
namespace {

constexpr std::int32_t agent = 40;
constexpr std::int32_t shell = 41;
constexpr std::int32_t compiler = 42;

// A Claude Code that runs a build; its hooks asked for 20 minutes.
class ToolWatchTest : public DaemonFixture {
 protected:
  ToolWatchTest() {
    machine->startAgent(agent);
    machine->processes.push_back(
        {.pid = shell, .ppid = agent, .executable = "/bin/bash", .command = "bash -c make"});
    machine->processes.push_back(
        {.pid = compiler, .ppid = shell, .executable = "cc1", .command = "cc1 a.c"});
    start();
  }

  void hook(const std::string& event, const std::string& name = "Claude Code") {
    askManualV2(20, true, name, "project", event);
  }

  // Minutes go by in which these processes use so many seconds of the processor each minute.
  void work(int minutes, double seconds, std::int32_t pid = compiler) {
    for (int minute = 0; minute < minutes; ++minute) {
      for (int part = 0; part < 6; ++part) {
        machine->timesUsed[pid] += Seconds(seconds / 6);
        wait(10);
      }
    }
  }

  bool isHeld() const { return power.isSleepDisabled; }
};

TEST_F(ToolWatchTest, AToolAtWorkExtendsTheTimerInItsAgentsName) {
  hook("PreToolUse");
  work(20, 30);
  EXPECT_TRUE(isHeld());
  work(1, 30);
  EXPECT_TRUE(isHeld());
  const ActivationRequester request = stored().lastRequester.value();
  EXPECT_EQ(request.name, "Claude Code");
  EXPECT_EQ(request.context, "project");
  EXPECT_EQ(request.event, "ToolRunning");
  EXPECT_LE(stored().manualUntil.value(), now + std::chrono::minutes(5));
  work(14, 30);
  EXPECT_TRUE(isHeld()) << "and again";
  work(6, 0);
  EXPECT_FALSE(isHeld()) << "until it is done";
}

TEST_F(ToolWatchTest, AnAgentThatWaitsForAnAnswerExtendsNothing) {
  hook("PreToolUse");
  work(21, 0.5);
  EXPECT_FALSE(isHeld());
}

TEST_F(ToolWatchTest, AnAgentThatWasKilledExtendsNothing) {
  hook("PreToolUse");
  work(19, 30);
  machine->processes.clear();
  work(2, 30);
  EXPECT_FALSE(isHeld());
}

TEST_F(ToolWatchTest, OnlyTheBeginOfAToolSaysThatOneRuns) {
  for (const char* event : {"PostToolUse", "UserPromptSubmit", "SessionStart"}) {
    hook("PreToolUse");
    work(1, 30);
    hook(event);
    work(21, 30);
    EXPECT_FALSE(isHeld()) << event;
  }
}

TEST_F(ToolWatchTest, EachAgentHasItsOwnWordForTheBegin) {
  machine->processes = {{.pid = agent, .ppid = 1, .executable = "pi", .command = "pi"}};
  hook("tool_call", "Pi");
  work(21, 30, agent);
  EXPECT_TRUE(isHeld());
  askStop();
  hook("PreToolUse", "Pi");
  work(21, 30, agent);
  EXPECT_FALSE(isHeld());
}

TEST_F(ToolWatchTest, TheWorkOfOthersIsNotTheAgents) {
  machine->processes.push_back({.pid = 50, .ppid = 1, .executable = "player", .command = "player"});
  hook("PreToolUse", "Somebody");
  work(21, 60);
  EXPECT_FALSE(isHeld()) << "no agent's name";
  hook("PreToolUse");
  work(21, 60, 50);
  EXPECT_FALSE(isHeld());
}

TEST_F(ToolWatchTest, TheTimeOfAProcessThatEndsStaysWithItsParent) {
  hook("PreToolUse");
  work(19, 0);
  machine->timesUsed[compiler] = Seconds(500);
  wait(45);
  machine->processes.pop_back();
  machine->timesUsed[shell] += Seconds(500);
  wait(30);
  EXPECT_TRUE(isHeld());
}

TEST_F(ToolWatchTest, ASecondSessionThatEndsHidesNoWork) {
  machine->startAgent(60);
  machine->timesUsed[60] = Seconds(9000);
  hook("PreToolUse");
  work(19, 30);
  machine->processes.pop_back();
  work(2, 30);
  EXPECT_TRUE(isHeld());
}

TEST_F(ToolWatchTest, ASessionThatHasJustBegunIsNotAtTheTool) {
  hook("PreToolUse");
  work(19, 0);
  machine->startAgent(60);
  machine->timesUsed[60] = Seconds(5);
  work(2, 0);
  EXPECT_FALSE(isHeld());
}

TEST_F(ToolWatchTest, AnAgentThatAnotherStartedCountsOnce) {
  machine->processes.push_back(
      {.pid = 61, .ppid = shell, .executable = "claude", .command = "claude --print"});
  hook("PreToolUse");
  work(21, 0.6, 61);
  EXPECT_FALSE(isHeld());
}

TEST_F(ToolWatchTest, AToolThatHangsIsLeftAfterThreeHours) {
  hook("PreToolUse");
  work(170, 60);
  EXPECT_TRUE(isHeld());
  work(20, 60);
  EXPECT_FALSE(isHeld());
}

TEST_F(ToolWatchTest, TheSettingSwitchesItOff) {
  hook("PreToolUse");
  changedSettings.settings.longTools = false;
  loop.handlers.hungUp();
  work(21, 30);
  EXPECT_FALSE(isHeld());
}

TEST_F(ToolWatchTest, SafetyAndAPersonsStopEndItAllTheSame) {
  hook("PreToolUse");
  work(21, 30);
  ASSERT_TRUE(isHeld());
  machine->powerSource = PowerSource::battery;
  machine->batteryPercent = 15;
  machineChanged();
  EXPECT_FALSE(isHeld());
  work(21, 30);
  EXPECT_EQ(stored().manualRemainingSeconds(now), 0) << "without a lock nothing is extended";
  machine->powerSource = PowerSource::ac;
  hook("PreToolUse");
  ASSERT_TRUE(isHeld());
  work(19, 30);
  askStop();
  work(5, 30);
  EXPECT_FALSE(isHeld());
}

TEST_F(ToolWatchTest, AShortestTimeBetweenLooksSaysTooLittle) {
  hook("PreToolUse");
  work(20, 0);
  machine->timesUsed[compiler] += Seconds(0.4);
  wait(1.5);
  EXPECT_FALSE(isHeld()) << "0.4 s in a minute are an idle agent's";
}

TEST_F(ToolWatchTest, NobodyIsLookedAtWhileTheTimerHasLongToGo) {
  hook("PreToolUse");
  const int listings = machine->listings;
  const int passes = machine->snapshotsTaken;
  wait(600);
  EXPECT_EQ(machine->listings - listings, machine->snapshotsTaken - passes);
}

TEST(ProcessorTimesTest, AreReadFromWhatPsPrints) {
  const auto times = PSProcessListing::parseTimes(
      "   41   0:00.25\n42 183:04.50\n 43 00:01:02\n44 1-02:03:04\n45 soon\nx 1:00\n46\n\n");
  EXPECT_EQ(times, (std::map<std::int32_t, Seconds>{{41, Seconds(0.25)},
                                                    {42, Seconds(183 * 60 + 4.5)},
                                                    {43, Seconds(62)},
                                                    {44, Seconds(26 * 3600 + 184)}}));
}

}  // namespace
}  // namespace nodo
