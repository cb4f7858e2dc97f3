#include <NODOCore/base/Errors.h>
#include <NODOCore/base/Files.h>
#include <NODOCore/hooks/Agents.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace nodo {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

TEST(AgentsTest, EveryKindAndEveryTargetIsThatOfOneRow) {
  EXPECT_EQ(allAgents().size(), allCases<AgentKind>().size());
  EXPECT_EQ(allAgents().size(), allCases<AgentHookTarget>().size());
  for (const Agent& agent : allAgents()) {
    EXPECT_EQ(&agentOf(agent.kind), &agent) << agent.displayName;
    EXPECT_EQ(&agentOf(agent.target), &agent) << agent.displayName;
  }
}

TEST(AgentsTest, TheSameAgentHasOneName) {
  std::vector<std::string_view> names;
  for (const AgentKind kind : allCases<AgentKind>()) {
    names.push_back(displayName(kind));
    EXPECT_EQ(displayName(agentOf(kind).target), names.back());
  }
  EXPECT_THAT(names, ElementsAre("Claude Code", "Codex", "Grok Build", "Pi"));
  EXPECT_EQ(listedAgentNames(), "Claude Code, Codex, Grok Build and Pi");
}

TEST(AgentsTest, WhoAsksIsKnownByExactlyTheAgentsName) {
  for (const Agent& agent : allAgents()) {
    EXPECT_EQ(agentAskingAs(agent.displayName), &agent) << agent.displayName;
  }
  for (const char* name : {"", "claude code", "Claude Code ", "Ada"}) {
    EXPECT_EQ(agentAskingAs(name), nullptr) << name;
  }
}

TEST(AgentsTest, ATargetIsKnownByExactlyItsText) {
  for (const AgentHookTarget target : allCases<AgentHookTarget>()) {
    EXPECT_EQ(parseAgentHookTarget(rawValue(target)), target);
  }
  for (const char* text : {"", "Pi", " pi", "claudeCode"}) {
    try {
      parseAgentHookTarget(text);
      ADD_FAILURE() << text;
    } catch (const NODOError& error) {
      EXPECT_EQ(error, NODOError::invalidCommand("hook target " + std::string(text)));
    }
  }
}

TEST(AgentsTest, SignsAreInLowerCaseAsTheTextsThatTheyAreLookedForIn) {
  const auto isPlain = [](const AgentSign& sign) {
    return !sign.text.empty() &&
           std::all_of(sign.text.begin(), sign.text.end(), [](char character) {
             return character >= ' ' && character < 127 && !(character >= 'A' && character <= 'Z');
           });
  };
  for (const Agent& agent : allAgents()) {
    EXPECT_FALSE(agent.signs.empty()) << agent.displayName;
    EXPECT_TRUE(std::all_of(agent.signs.begin(), agent.signs.end(), isPlain)) << agent.displayName;
    EXPECT_TRUE(std::all_of(agent.signsBesideName.begin(), agent.signsBesideName.end(), isPlain))
        << agent.displayName;
  }
}

TEST(AgentsTest, TheScriptCanWriteEveryNameBetweenDoubleQuotes) {
  for (const Agent& agent : allAgents()) {
    EXPECT_EQ(agent.displayName.find_first_of("\"\\$`!"), std::string_view::npos)
        << agent.displayName;
  }
}

// What people read, which is written by hand.
class AgentsInDocumentsTest : public ::testing::Test {
 protected:
  static std::string document(const char* name) {
    return readFile(std::filesystem::path(NODO_PROJECT) / name).value_or("");
  }

  static std::size_t count(const std::string& text, const std::string& piece) {
    std::size_t found = 0;
    for (auto at = text.find(piece); at != std::string::npos; at = text.find(piece, at + 1)) {
      ++found;
    }
    return found;
  }
};

TEST_F(AgentsInDocumentsTest, TheManPageOfTheHooksHasARowForEach) {
  const std::string page = document("packaging/man/nodo-hooks.7.scd");
  for (const Agent& agent : allAgents()) {
    EXPECT_THAT(page, HasSubstr("\n|  " + std::string(agent.displayName) + "\n:  _~/" +
                                std::string(agent.configurationFile) + "_"));
  }
  EXPECT_EQ(count(page, "\n|  "), allAgents().size());
}

TEST_F(AgentsInDocumentsTest, TheReadmeHasARowForEach) {
  const std::string readme = document("README.md");
  for (const Agent& agent : allAgents()) {
    EXPECT_THAT(readme, HasSubstr("\n| " + std::string(agent.displayName) + " | `~/" +
                                  std::string(agent.configurationFile) + "`"));
    EXPECT_THAT(readme, HasSubstr("`" + std::string(rawValue(agent.target)) + "`"));
  }
  EXPECT_EQ(count(readme, " | `~/"), allAgents().size());
}

TEST_F(AgentsInDocumentsTest, TheManPageOfTheToolNamesEachTarget) {
  std::string targets;
  for (const AgentHookTarget target : allCases<AgentHookTarget>()) {
    const bool isLast = target == allCases<AgentHookTarget>().back();
    targets += targets.empty() ? "" : isLast ? " or " : ", ";
    targets += "*" + std::string(rawValue(target)) + "*";
  }
  EXPECT_THAT(document("packaging/man/nodoctl.1.scd"), HasSubstr("A _TARGET_ is " + targets + ";"));
}

}  // namespace
}  // namespace nodo
