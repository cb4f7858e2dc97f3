#include <NODOCore/hooks/HookConfiguration.h>

#include <algorithm>
#include <string>

#include <tests/hooks/InstallerFixture.h>

namespace nodo {
namespace {

using ::testing::HasSubstr;

// What everybody else may have in such a file.
const std::string foreignSettings = R"({
  "apiKeyHelper": "/bin/key \u2028 \ud83d\ude00 a\/b \u0000 \"q\"",
  "big": 12345678901234567890,
  "hooks": {
    "Notification": [
      {
        "hooks": [
          {
            "command": "notify",
            "type": "command"
          }
        ]
      }
    ],
    "PreToolUse": [
      {
        "hooks": [
          {
            "command": "first",
            "timeout": 1.10
          }
        ],
        "matcher": "Bash"
      },
      {
        "hooks": [],
        "matcher": "empty"
      },
      {
        "matcher": "none"
      },
      {
        "hooks": [
          {
            "command": "caffeinate -i"
          },
          {
            "prompt": "no command"
          }
        ]
      }
    ]
  },
  "numbers": [
    1.10,
    -0,
    1e2,
    99999999999999999999.5
  ]
}
)";

class AgentHookInstallerMergeTest : public InstallerFixture {
 protected:
  std::string ours(std::string_view event) const { return group(AgentHookTarget::claude, event); }

  // The hooks of one event after an installation into a file that has only those.
  std::string eventAfterInstalling(const std::string& event) const {
    home.write(claudeFile, R"({"hooks": {"PreToolUse": )" + event + "}}");
    install(AgentHookTarget::claude);
    const JSONValue configuration = JSONValue::parse(home.read(claudeFile));
    return jsonText(*configuration.member("hooks")->member("PreToolUse"), JSONLayout::compact);
  }

  void expectEvent(const std::string& before, const std::string& after) const {
    EXPECT_TRUE(sameValue(JSONValue::parse(eventAfterInstalling(before)), JSONValue::parse(after)))
        << before << " became " << eventAfterInstalling(before);
  }
};

TEST_F(AgentHookInstallerMergeTest, ForeignHooksStayInTheirOrderAndOursComeAfterThem) {
  home.write(claudeFile, foreignSettings);
  EXPECT_EQ(install(AgentHookTarget::claude), report("claude", claudeFile, true, "installed"));
  JSONValue expected = JSONValue::parse(foreignSettings);
  JSONValue& hooks = *expected.member("hooks");
  hooks.member("PreToolUse")->array()->push_back(JSONValue::parse(ours("PreToolUse")));
  for (const std::string event : {"SessionStart", "UserPromptSubmit", "PostToolUse"}) {
    hooks.setMember(event, JSONValue::parse("[" + ours(event) + "]"));
  }
  EXPECT_EQ(home.read(claudeFile), jsonText(expected, JSONLayout::prettySorted) + "\n");
}

TEST_F(AgentHookInstallerMergeTest, UninstallingGivesTheForeignFileBack) {
  // As a person's file is once it has been laid out by an installation.
  home.write(claudeFile,
             jsonText(JSONValue::parse(foreignSettings), JSONLayout::prettySorted) + "\n");
  const std::string before = home.read(claudeFile);
  EXPECT_THAT(before, HasSubstr("\"big\": 12345678901234567890,"));
  EXPECT_THAT(before, HasSubstr("    1.10,\n    -0,\n    1e2,\n    99999999999999999999.5\n"));
  EXPECT_THAT(before, HasSubstr("\"timeout\": 1.10\n"));
  install(AgentHookTarget::claude);
  const std::string installed = home.read(claudeFile);
  EXPECT_NE(installed, before);
  EXPECT_EQ(uninstall(AgentHookTarget::claude), report("claude", claudeFile, true, "removed"));
  EXPECT_EQ(home.read(claudeFile), before);
  install(AgentHookTarget::claude);
  EXPECT_EQ(home.read(claudeFile), installed);
}

TEST_F(AgentHookInstallerMergeTest, ForeignTextsKeepEveryCharacter) {
  home.write(claudeFile, foreignSettings);
  install(AgentHookTarget::claude);
  const JSONValue after = JSONValue::parse(home.read(claudeFile));
  EXPECT_EQ(*after.member("apiKeyHelper")->text(),
            std::string("/bin/key \u2028 \U0001F600 a/b \0 \"q\"", 27));
}

TEST_F(AgentHookInstallerMergeTest, AGroupThatHoldsOursBesideAForeignEntryLosesOnlyOurs) {
  expectEvent(R"([{"matcher": "Bash", "hooks": [{"command": "a"}, )"
              R"({"command": "NODO_HOOK_AGENT='claude' '/old/nodo-agent-hook.sh'"}, )"
              R"({"command": "b"}]}])",
              R"([{"matcher": "Bash", "hooks": [{"command": "a"}, {"command": "b"}]}, )" +
                  ours("PreToolUse") + "]");
}

TEST_F(AgentHookInstallerMergeTest, OlderHooksOfOursAreReplaced) {
  for (const char* command : {"NODO_HOOK_AGENT='claude' '/old/nodo-agent-hook.sh'",
                              "NODO_HOOK_AGENT=claude nodo-agent-hook.sh",
                              "/home/u/.nodo/claude-hook.sh", "bash claude-hook.sh --x"}) {
    expectEvent(R"([{"hooks": [{"command": ")" + std::string(command) + R"("}]}])",
                "[" + ours("PreToolUse") + "]");
  }
}

TEST_F(AgentHookInstallerMergeTest, WhatIsNotOursIsNotTouched) {
  for (const char* group :
       {R"({"hooks": [{"command": "NODO_HOOK_AGENT='codex' '/x/nodo-agent-hook.sh'"}]})",
        R"({"hooks": [{"command": "/x/nodo-agent-hook.sh"}]})",
        R"({"hooks": [{"command": "NODO_HOOK_AGENT='claude' other.sh"}]})",
        R"({"hooks": [{"command": 5}, {"command": ["claude-hook.sh"]}, "claude-hook.sh", null]})",
        R"({"hooks": "claude-hook.sh"})", R"({"hooks": []})", R"({})"}) {
    expectEvent("[" + std::string(group) + "]",
                "[" + std::string(group) + "," + ours("PreToolUse") + "]");
  }
}

TEST_F(AgentHookInstallerMergeTest, OurGroupStaysWhereItIsAndInWhateverLayout) {
  install(AgentHookTarget::claude);
  JSONValue configuration = JSONValue::parse(home.read(claudeFile));
  auto& groups = *configuration.member("hooks")->member("PreToolUse")->array();
  groups.push_back(JSONValue::parse(R"({"hooks": [{"command": "later"}]})"));
  std::string text = jsonText(configuration, JSONLayout::compact);
  text.replace(text.find("\"timeout\":5"), 11, "\"timeout\":5.0");
  home.write(claudeFile, text);
  EXPECT_EQ(install(AgentHookTarget::claude),
            report("claude", claudeFile, true, "already installed"))
      << "it was laid out anew";
  EXPECT_TRUE(holds(claudeFile, text));
  EXPECT_THAT(home.read(claudeFile), HasSubstr("\"timeout\": 5.0"));
  EXPECT_EQ(install(AgentHookTarget::claude),
            report("claude", claudeFile, false, "already installed"));
}

TEST_F(AgentHookInstallerMergeTest, OurGroupWithAnotherKeyOrTimeoutIsReplaced) {
  for (const std::string& changed :
       {std::string(R"("timeout":6)"), std::string(R"("timeout":5,"x":1)")}) {
    std::string old = ours("PreToolUse");
    old.replace(old.find("\"timeout\":5"), 11, changed);
    expectEvent("[" + old + "]", "[" + ours("PreToolUse") + "]");
  }
}

TEST_F(AgentHookInstallerMergeTest, AnOlderHookBesideTheWantedGroupIsTakenOut) {
  install(AgentHookTarget::claude);
  JSONValue configuration = JSONValue::parse(home.read(claudeFile));
  const std::string wanted = jsonText(configuration, JSONLayout::compact);
  configuration.member("hooks")
      ->member("PreToolUse")
      ->array()
      ->push_back(JSONValue::parse(R"({"hooks": [{"command": "claude-hook.sh"}]})"));
  home.write(claudeFile, jsonText(configuration, JSONLayout::compact));
  EXPECT_EQ(install(AgentHookTarget::claude), report("claude", claudeFile, true, "installed"));
  EXPECT_TRUE(holds(claudeFile, wanted));
}

TEST_F(AgentHookInstallerMergeTest, WhatIsNoListOfGroupsIsReplaced) {
  for (const char* event : {"null", "5", "\"text\"", "{}", "[1]", "[{}, null]"}) {
    expectEvent(event, "[" + ours("PreToolUse") + "]");
  }
  for (const char* file :
       {"", "[1]", "null", "5", R"({"hooks": 5})", R"({"hooks": []})", R"({"hooks": null})"}) {
    home.write(claudeFile, file);
    install(AgentHookTarget::claude);
    EXPECT_TRUE(holds(claudeFile, "{\"hooks\":{" + ourEvents(AgentHookTarget::claude) + "}}"))
        << file;
  }
}

TEST_F(AgentHookInstallerMergeTest, OfMembersThatOccurTwiceTheOneThatCountsIsMerged) {
  home.write(claudeFile, R"({"a": 1, "hooks": {"x": 1}, "a": 2, "hooks": {"Stop": []}})");
  install(AgentHookTarget::claude);
  const JSONValue after = JSONValue::parse(home.read(claudeFile));
  EXPECT_NE(after.member("hooks")->member("Stop"), nullptr);
  EXPECT_TRUE(hasAllHooks(after, AgentHookTarget::claude, home / scriptFile));
  EXPECT_EQ(after.object()->size(), 4U) << home.read(claudeFile);
}

TEST_F(AgentHookInstallerMergeTest, AnotherAgentsOwnFileIsReplacedWhole) {
  home.write(grokFile, R"({"description": "old", "hooks": {"Stop": []}})");
  EXPECT_EQ(install(AgentHookTarget::grok), report("grok", grokFile, true, "installed"));
  EXPECT_TRUE(holds(grokFile, "{\"hooks\":{" + ourEvents(AgentHookTarget::grok) + "}}"));
}

TEST_F(AgentHookInstallerMergeTest, AnEqualOwnFileIsNotWrittenInAnotherLayout) {
  const std::string compact = "{\"hooks\":{" + ourEvents(AgentHookTarget::grok) + "}}";
  home.write(grokFile, compact);
  EXPECT_FALSE(installer().install({AgentHookTarget::grok}).at(0).message == "installed");
  EXPECT_EQ(home.read(grokFile), compact);
}

TEST_F(AgentHookInstallerMergeTest, NothingIsAddedToCodexsFileBesideHooks) {
  home.write(codexFile, R"({"description": "mine"})");
  install(AgentHookTarget::codex);
  EXPECT_TRUE(holds(codexFile, "{\"description\":\"mine\",\"hooks\":{" +
                                   ourEvents(AgentHookTarget::codex) + "}}"));
}

}  // namespace
}  // namespace nodo
