#include <NODOCore/base/Errors.h>
#include <NODOCore/sensing/AgentDetector.h>
#include <NODOCore/sensing/ProcessListing.h>
#include <testing/FakeMachine.h>
#include <testing/JSONRows.h>

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace nodo {
namespace {

using test::FakeMachine;
using test::optionalOf;
using test::testRows;
using test::valueOf;
using ::testing::ElementsAre;

using Kind = std::optional<AgentKind>;

Kind kindOf(const std::string& executable, const std::string& command) {
  return AgentDetector().classify(
      {.pid = 7, .ppid = 1, .executable = executable, .command = command});
}

struct Row {
  const char* executable;
  const char* command;
};

std::ostream& operator<<(std::ostream& stream, const Row& row) {
  return stream << row.executable << " | " << row.command;
}

template <class Rows>
void expectKind(Kind kind, const Rows& rows) {
  for (const Row& row : rows) {
    EXPECT_EQ(kindOf(row.executable, row.command), kind) << row;
  }
}

TEST(AgentDetectorTest, KnownProcessesAreClassified) {
  for (const JSONValue& row : testRows("vectors/classify.json")) {
    const auto executable = valueOf<std::string>(row, "executable");
    const auto command = valueOf<std::string>(row, "command");
    EXPECT_EQ(kindOf(executable, command), optionalOf<AgentKind>(row, "kind"))
        << executable << " | " << command;
  }
}

TEST(AgentDetectorTest, TheAgentsOfALinuxMachineAreClassified) {
  for (const JSONValue& row : testRows("agents/linux-agents.json")) {
    const auto arguments = valueOf<std::vector<std::string>>(row, "argv");
    std::string command;
    for (const std::string& argument : arguments) {
      command += (command.empty() ? "" : " ") + argument;
    }
    EXPECT_EQ(kindOf(arguments.front(), command), optionalOf<AgentKind>(row, "kind"))
        << valueOf<std::string>(row, "agent");
  }
}

TEST(AgentDetectorTest, AShellThatRunsAOneLineCommandIsNoAgent) {
  expectKind(std::nullopt, std::vector<Row>{
                               {"/bin/bash", "bash -c run-claude-code"},
                               {"/bin/sh", "sh -e -c 'codex; openai codex'"},
                               {"/usr/bin/zsh", "zsh -c @earendil-works/pi-coding-agent"},
                               {"fish", "/x/claude-code/fish -c"},
                               {"BASH", "bash -c claude-code"},
                           });
}

TEST(AgentDetectorTest, AShellThatRunsAScriptMayBeAnAgent) {
  expectKind(AgentKind::claudeCode, std::vector<Row>{
                                        {"/bin/bash", "bash claude-code.sh"},
                                        {"/bin/bash", "bash -C claude-code"},
                                        {"/bin/bash", "bash -cx claude-code"},
                                        {"/bin/bash", "bash --c claude-code -cd"},
                                        {"/bin/dash", "dash -c claude-code"},
                                    });
}

TEST(AgentDetectorTest, NodosOwnToolsAreNoAgents) {
  expectKind(std::nullopt, std::vector<Row>{
                               {"nodoctl", "nodoctl manual --requester claude-code"},
                               {"/usr/local/bin/nodod", "nodod claude-code"},
                               {"/X/NodoCtl", "openai codex"},
                           });
}

TEST(AgentDetectorTest, ClaudeCodeIsKnownByNameOrCommand) {
  expectKind(AgentKind::claudeCode, std::vector<Row>{
                                        {"/usr/local/bin/claude", "claude --resume"},
                                        {"claude-code", "x"},
                                        {"/Applications/Claude.app/Contents/MacOS/Claude", "x"},
                                        {"node", "node /lib/@anthropic-ai/claude-code/cli.js"},
                                        {"codex", "codex about claude-code"},
                                    });
  expectKind(std::nullopt, std::vector<Row>{{"claudette", "claudette"}, {"x", "claude"}});
}

TEST(AgentDetectorTest, CodexIsKnownByNameOrCommandOutsideOfABundle) {
  expectKind(AgentKind::codex, std::vector<Row>{
                                   {"codex", "codex exec"},
                                   {"/opt/Codex", "x"},
                                   {"node", "/Users/u/.codex/bin/codex --x"},
                                   {"node", "OpenAI Codex"},
                               });
  expectKind(std::nullopt, std::vector<Row>{
                               {"/Applications/Codex.app/Contents/MacOS/Codex", "x"},
                               {"codex", "/Applications/Codex.app/Contents/MacOS/codex"},
                               {"node", "codex"},
                               {"codex-helper", "x"},
                           });
}

TEST(AgentDetectorTest, ACodexBundleIsStillTestedForTheOtherAgents) {
  expectKind(AgentKind::pi, std::vector<Row>{{"codex", "/A.app/Contents/MacOS/codex /bin/pi x"}});
  expectKind(AgentKind::grokBuild,
             std::vector<Row>{{"codex", "/A.app/Contents/MacOS/codex /.grok/bin/grok"}});
}

TEST(AgentDetectorTest, GrokBuildNeedsAMarkerBesideItsName) {
  expectKind(AgentKind::grokBuild, std::vector<Row>{
                                       {"grok", "/usr/local/bin/grok"},
                                       {"grok", "grok agent --x"},
                                       {"grok", "grok session"},
                                       {"grok", "grok leader"},
                                       {"grok", "sudo grok"},
                                       {"node", "/home/u/.grok/bin/grok -p"},
                                       {"node", "/home/u/.grok/downloads/grok-1.2"},
                                   });
  expectKind(std::nullopt, std::vector<Row>{
                               {"grok", "grok"},
                               {"grok", "grok -p hi"},
                               {"node", "grok agent"},
                           });
}

TEST(AgentDetectorTest, PiIsKnownByNameCommandOrPackage) {
  expectKind(AgentKind::pi, std::vector<Row>{
                                {"pi", "x"},
                                {"x", "pi"},
                                {"x", "PI run"},
                                {"x", "/usr/bin/pi"},
                                {"x", "node /usr/bin/pi -p"},
                                {"node", "/lib/@earendil-works/pi-coding-agent/dist/cli.js"},
                            });
  expectKind(std::nullopt, std::vector<Row>{
                               {"x", "pip install"},
                               {"pip", "pip install pi"},
                               {"x", "/usr/bin/pip"},
                               {"x", "raspi x"},
                           });
}

TEST(AgentDetectorTest, OfSeveralAgentsTheEarlierOneOfTheTableIsMeant) {
  expectKind(AgentKind::claudeCode, std::vector<Row>{
                                        {"claude", "pi"},
                                        {"pi", "pi --with claude-code"},
                                        {"claude", "/home/u/.grok/bin/grok openai codex"},
                                    });
  expectKind(AgentKind::codex, std::vector<Row>{
                                   {"codex", "/home/u/.grok/bin/grok"},
                                   {"pi", "pi openai codex"},
                               });
  expectKind(AgentKind::grokBuild, std::vector<Row>{
                                       {"pi", "/home/u/.grok/bin/grok"},
                                       {"grok", "/bin/pi agent"},
                                       {"x", "pi /home/u/.grok/downloads/grok-1"},
                                   });
}

TEST(AgentDetectorTest, ACharacterThatOnlyBeginsLikeANameIsNotThatName) {
  expectKind(std::nullopt, std::vector<Row>{
                               {"x", "claude-code\u0301"},
                               {"x", "\u0600claude-code"},
                               {"x", "pi \u0301"},
                               {"x", "/usr/bin/pi\u200D"},
                               {"codex\u0301", "x"},
                           });
  expectKind(AgentKind::codex,
             std::vector<Row>{{"codex", "\xFF\xFE"}, {"x", "\xFFopenai codex\xC3"}});
}

TEST(AgentDetectorTest, TheNameIsTheLastComponentOfThePath) {
  expectKind(AgentKind::pi, std::vector<Row>{
                                {"/a/pi/", "x"},
                                {"/a/pi//", "x"},
                                {"/a/pi/.", "x"},
                                {"/a/pi/./", "x"},
                                {"./pi", "x"},
                            });
  expectKind(std::nullopt,
             std::vector<Row>{{"/", "x"}, {"", ""}, {".", "x"}, {"/pi/..", "x"}, {"/pi/x", "x"}});
}

TEST(AgentDetectorTest, AgentsAreListedInTheirOrderWithoutMerging) {
  const std::vector<RunningProcess> processes = {
      {.pid = 1, .ppid = 0, .executable = "init", .command = "init"},
      {.pid = 9, .ppid = 1, .executable = "pi", .command = "pi x"},
      {.pid = 5, .ppid = 9, .executable = "node", .command = "/bin/pi x"},
      {.pid = 6, .ppid = std::nullopt, .executable = "codex", .command = "codex"},
      {.pid = 9, .ppid = 1, .executable = "pi", .command = "pi x"},
  };
  const std::vector<AgentProcess> expected = {
      {.pid = 9, .ppid = 1, .executable = "pi", .command = "pi x", .kind = AgentKind::pi},
      {.pid = 5, .ppid = 9, .executable = "node", .command = "/bin/pi x", .kind = AgentKind::pi},
      {.pid = 6,
       .ppid = std::nullopt,
       .executable = "codex",
       .command = "codex",
       .kind = AgentKind::codex},
      {.pid = 9, .ppid = 1, .executable = "pi", .command = "pi x", .kind = AgentKind::pi},
  };
  EXPECT_EQ(AgentDetector().detect(processes), expected);
  EXPECT_EQ(AgentDetector().detect(StaticProcessListing(processes)), expected);
  EXPECT_TRUE(AgentDetector().detect(std::vector<RunningProcess>{}).empty());
}

// ---- an agent and what started it

std::vector<std::int32_t> shownOf(const std::vector<RunningProcess>& processes) {
  std::vector<std::int32_t> shown;
  for (const AgentProcess& agent : withoutLaunchers(AgentDetector().detect(processes), processes)) {
    shown.push_back(agent.pid);
  }
  return shown;
}

TEST(LaunchersTest, WhatOnlyStartedAnAgentIsLeftOut) {
  EXPECT_THAT(
      shownOf(
          {{.pid = 5, .ppid = 1, .executable = "timeout", .command = "timeout 9 /u/.grok/bin/grok"},
           {.pid = 6, .ppid = 5, .executable = "grok", .command = "/usr/bin/grok"}}),
      ElementsAre(6));
}

TEST(LaunchersTest, WhatRunsBetweenTheTwoMayBeNoAgent) {
  constexpr char npx[] = "npm exec @earendil-works/pi-coding-agent";
  EXPECT_THAT(shownOf({{.pid = 7, .ppid = 6, .executable = "node", .command = "node /x/bin/pi"},
                       {.pid = 6, .ppid = 5, .executable = "sh", .command = "sh -c pi"},
                       {.pid = 5, .ppid = 1, .executable = npx, .command = npx}}),
              ElementsAre(7));
}

TEST(LaunchersTest, AgentsThatAgentsStartAreShown) {
  EXPECT_THAT(shownOf({{.pid = 5, .ppid = 1, .executable = "claude", .command = "claude"},
                       {.pid = 6, .ppid = 5, .executable = "claude", .command = "claude -p hi"},
                       {.pid = 7, .ppid = 5, .executable = "codex", .command = "codex"}}),
              ElementsAre(5, 6, 7));
  EXPECT_THAT(shownOf({{.pid = 5, .ppid = 1, .executable = "node", .command = "node /bin/pi"},
                       {.pid = 6, .ppid = 5, .executable = "node", .command = "node /bin/pi -p"}}),
              ElementsAre(5, 6));
}

TEST(LaunchersTest, OneWithoutAnAgentBelowItIsAllThatThereIs) {
  EXPECT_THAT(
      shownOf(
          {{.pid = 5, .ppid = 1, .executable = "timeout", .command = "timeout 9 /u/.grok/bin/grok"},
           {.pid = 6, .ppid = 1, .executable = "grok", .command = "/usr/bin/grok"}}),
      ElementsAre(5, 6));
}

TEST(LaunchersTest, ATableThatGoesRoundInCirclesHasAnEnd) {
  EXPECT_THAT(
      shownOf(
          {{.pid = 5, .ppid = 6, .executable = "timeout", .command = "timeout 9 /u/.grok/bin/grok"},
           {.pid = 6, .ppid = 5, .executable = "grok", .command = "/usr/bin/grok"}}),
      ElementsAre(6));
}

TEST(AgentDetectorTest, AFailedListingIsPassedOn) {
  FakeMachine machine;
  machine.listingFails = true;
  try {
    AgentDetector().detect(machine);
    FAIL() << "the listing failed";
  } catch (const NODOError& error) {
    EXPECT_EQ(error, NODOError::processListingFailed("broken"));
  }
}

TEST(AgentDetectorTest, AMegabyteOfCommandLineIsClassified) {
  std::string command;
  while (command.size() < 1000000) {
    command += "pi\u0301 /bin/pi\u0301 claude-cod grok -c";
  }
  EXPECT_EQ(kindOf("node", command), std::nullopt);
  EXPECT_EQ(kindOf("node", command + " openai codex"), AgentKind::codex);
}

}  // namespace
}  // namespace nodo
