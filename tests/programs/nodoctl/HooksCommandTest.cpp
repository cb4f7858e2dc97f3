#include <NODOCore/diagnostics/Findings.h>

#include <filesystem>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include <tests/programs/nodoctl/HooksFixture.h>

namespace nodo::nodoctl {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

using HooksCommandTest = HooksFixture;

TEST_F(HooksCommandTest, WithoutATargetAllFourAreMeant) {
  EXPECT_THAT(targets({"hooks", "install", "--json"}),
              ElementsAre("claude", "codex", "grok", "pi"));
  EXPECT_EQ(inspect().targets.size(), 4U);
  EXPECT_TRUE(inspect().isCurrent());
  EXPECT_THAT(targets({"hooks", "uninstall", "--json"}),
              ElementsAre("claude", "codex", "grok", "pi", "hook-script"));
  EXPECT_FALSE(fs::exists(home / ".nodo/nodo-agent-hook.sh"));
}

TEST_F(HooksCommandTest, OnlyTheNamedTargetsAreTouched) {
  EXPECT_THAT(targets({"hooks", "install", "pi", "claude", "pi", "--json"}),
              ElementsAre("pi", "claude"));
  EXPECT_TRUE(fs::exists(home / ".claude/settings.json"));
  EXPECT_FALSE(fs::exists(home / ".codex"));
  EXPECT_EQ(inspect({"claude"}).targets.size(), 1U);
  EXPECT_EQ(inspect().currentTargetCount(), 2);
  EXPECT_THAT(targets({"hooks", "uninstall", "claude", "--json"}), ElementsAre("claude"));
  EXPECT_TRUE(fs::exists(home / ".nodo/nodo-agent-hook.sh"));
}

TEST_F(HooksCommandTest, AScriptThatCannotBeRemovedIsReportedBesideWhatWas) {
  run({"hooks", "install"});
  fs::remove(home / ".nodo/nodo-agent-hook.sh");
  fs::create_directory(home / ".nodo/nodo-agent-hook.sh");
  const Outcome outcome = run({"hooks", "uninstall", "--json"});
  EXPECT_EQ(outcome.exitStatus, 1);
  EXPECT_EQ(outcome.error, "nodoctl: 1 of 5 could not be uninstalled\n");
  const auto reports = decodeJSON<std::vector<AgentHookInstallReport>>(outcome.output);
  ASSERT_EQ(reports.size(), 5U);
  for (std::size_t index = 0; index < 4; ++index) {
    EXPECT_EQ(reports[index].message, "removed");
  }
  EXPECT_EQ(reports[4].target, "hook-script");
  EXPECT_EQ(reports[4].path, (home / ".nodo/nodo-agent-hook.sh").string());
  EXPECT_EQ(reports[4].message, "failed");
  EXPECT_THAT(reports[4].error.value_or(""), HasSubstr("nodo-agent-hook.sh"));
  EXPECT_THAT(run({"hooks", "uninstall"}).output,
              HasSubstr("Hook script: failed: Unable to remove"));
}

TEST_F(HooksCommandTest, AnInstallationIsShownWithWhatIsLeftToDo) {
  const std::string base = home.string();
  const Outcome first = run({"hooks", "install"});
  EXPECT_EQ(first.exitStatus, 0);
  EXPECT_EQ(first.error, "");
  EXPECT_EQ(
      first.output,
      "Claude Code: installed (" + base + "/.claude/settings.json)\n" +
          "Codex:       installed; Codex hooks feature enabled (" + base + "/.codex/hooks.json)\n" +
          "Grok Build:  installed (" + base + "/.grok/hooks/nodo.json)\n" +
          "Pi:          installed (" + base + "/.pi/agent/extensions/nodo.ts)\n" +
          "What is left to do:\n"
          "  Claude Code: it runs hooks only in folders that you trust: accept when it asks.\n"
          "  Codex: it asks to review new hooks in its own screen, and runs them only after that.\n"
          "  Grok Build: it also runs Claude Code's hooks, so its work may be shown under that "
          "name "
          "too.\n"
          "Restart agents that are running.\n");
}

TEST_F(HooksCommandTest, OnlyWhatThisRunLeavesToDoIsSaid) {
  const std::string extension = " (" + (home / ".pi/agent/extensions/nodo.ts").string() + ")\n";
  const std::string restart = "Restart agents that are running.\n";
  EXPECT_EQ(run({"hooks", "install", "pi"}).output, "Pi:          installed" + extension + restart);
  EXPECT_EQ(run({"hooks", "install", "pi"}).output, "Pi:          already installed" + extension);
  const std::string both = run({"hooks", "install", "pi", "codex"}).output;
  EXPECT_THAT(both, HasSubstr("What is left to do:\n  Codex: it asks to review"));
  EXPECT_THAT(both, HasSubstr(restart));
  EXPECT_THAT(run({"hooks", "install", "pi", "codex", "--nodoctl", "/bin/sh"}).output,
              ::testing::AllOf(HasSubstr("shared hook script updated"), Not(HasSubstr("review")),
                               Not(HasSubstr("Restart"))));
}

TEST_F(HooksCommandTest, AFileThatWasOnlyLaidOutAnewWasChangedAndLeavesNothingToDo) {
  run({"hooks", "install", "claude"});
  const std::string file = "home/.claude/settings.json";
  const std::string ours = folder.read(file);
  folder.write(file, jsonText(JSONValue::parse(ours), JSONLayout::compact));
  const auto anew = reports({"hooks", "install", "claude", "--json"}).at(0);
  EXPECT_TRUE(anew.changed);
  EXPECT_EQ(anew.message, "already installed");
  EXPECT_EQ(folder.read(file), ours);
  EXPECT_FALSE(reports({"hooks", "install", "claude", "--json"}).at(0).changed);
  folder.write(file, jsonText(JSONValue::parse(ours), JSONLayout::compact));
  EXPECT_THAT(run({"hooks", "install", "claude"}).output, Not(HasSubstr("What you have to do")));
}

TEST_F(HooksCommandTest, WhatMayBeThePersonsOwnIsNamedWhenItGoes) {
  folder.write("home/.claude/settings.json",
               R"({"hooks": {"PreToolUse": ["stray", {"hooks": [{"command": "lint"}]}],)"
               R"("Stop": [{"hooks": [{"command": "bin/my-claude-hook.sh"}]}]}})");
  const std::string file = (home / ".claude/settings.json").string();
  EXPECT_EQ(run({"hooks", "install", "claude"}).error,
            "nodoctl: removed from " + file +
                ": what stood at PreToolUse, as it was no list of objects: "
                R"(["stray",{"hooks":[{"command":"lint"}]}])"
                "\n");
  EXPECT_EQ(run({"hooks", "install", "claude"}).error, "");
  EXPECT_EQ(run({"hooks", "uninstall", "claude"}).error,
            "nodoctl: removed from " + file +
                ": the hook \"bin/my-claude-hook.sh\" of Stop, taken for an older one of nodo's by "
                "its name\n");
  folder.write("home/.grok/hooks/nodo.json", R"({"mine": 1})");
  folder.write("home/.pi/agent/extensions/nodo.ts", "export default () => {}\n");
  const std::string error = run({"hooks", "install", "grok", "pi"}).error;
  EXPECT_THAT(error, HasSubstr("nodo.json: what it held beside nodo's hooks: {\"mine\":1}\n"));
  EXPECT_THAT(error, HasSubstr("nodo.ts: the extension that stood there"));
}

TEST_F(HooksCommandTest, WhatIsNoJSONIsSaidOnceWithItsLineAndTheWayOut) {
  const std::string file = (home / ".claude/settings.json").string();
  for (const auto& [content, line] :
       {std::pair("{\n  // mine\n}", "line 2"), std::pair("{\n  \"a\": 1 /* mine */}", "line 2"),
        std::pair("{\"a\": 1,}", "line 1")}) {
    folder.write("home/.claude/settings.json", content);
    const std::string shown = run({"hooks", "install", "claude"}).output;
    EXPECT_EQ(shown, "Claude Code: failed: " + file + ", " + line +
                         ": this is not valid JSON. Repair it, then run this again.\n");
    const std::string inspected = run({"hooks", "inspect", "claude"}).output;
    EXPECT_THAT(inspected, HasSubstr(line));
    EXPECT_EQ(inspected.find(file), inspected.rfind(file));
  }
}

TEST_F(HooksCommandTest, AnInspectionSaysHowToBringItUpToDate) {
  const std::string base = home.string();
  EXPECT_EQ(run({"hooks", "inspect", "pi"}).output,
            "Hook script: missing (" + base + "/.nodo/nodo-agent-hook.sh)\n" +
                "Pi:          missing (" + base + "/.pi/agent/extensions/nodo.ts)\n" +
                "'nodoctl hooks install' installs what is missing and brings up to date what is "
                "outdated.\n");
  run({"hooks", "install"});
  const Outcome outcome = run({"hooks", "inspect"});
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_EQ(outcome.error, "");
  const std::string untrusted = "Problem: Codex does not run nodo's hooks: " + base +
                                "/.codex/config.toml does not say that you trust them.\n"
                                "  Type /hooks in Codex, review them and trust them.\n";
  EXPECT_EQ(outcome.output, "Hook script: current (" + base + "/.nodo/nodo-agent-hook.sh)\n" +
                                "Claude Code: current (" + base + "/.claude/settings.json)\n" +
                                "Codex:       current (" + base + "/.codex/hooks.json)\n" +
                                "Grok Build:  current (" + base + "/.grok/hooks/nodo.json)\n" +
                                "Pi:          current (" + base +
                                "/.pi/agent/extensions/nodo.ts)\n" + untrusted);
}

TEST_F(HooksCommandTest, AnUninstallationSaysWhatStaysOnPurpose) {
  const std::string base = home.string();
  run({"hooks", "install", "codex"});
  const Outcome outcome = run({"hooks", "uninstall"});
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_EQ(outcome.output,
            "Claude Code: not installed (" + base + "/.claude/settings.json)\n" +
                "Codex:       removed (" + base + "/.codex/hooks.json)\n" +
                "Grok Build:  not installed (" + base + "/.grok/hooks/nodo.json)\n" +
                "Pi:          not installed (" + base + "/.pi/agent/extensions/nodo.ts)\n" +
                "Hook script: removed (" + base + "/.nodo/nodo-agent-hook.sh)\n" +
                "Codex's own switch for hooks, in its config.toml, is left as it is: other hooks "
                "may need it.\n"
                "An agent that is running reports a missing hook until it is started again.\n");
  EXPECT_THAT(run({"hooks", "uninstall"}).output,
              ::testing::AllOf(Not(HasSubstr("config.toml")), Not(HasSubstr("started again"))));
  EXPECT_EQ(std::distance(fs::directory_iterator(home), fs::directory_iterator()), 1);
  EXPECT_TRUE(fs::exists(home / ".codex/config.toml"));

  folder.write("home/.codex/hooks.json",
               R"({"hooks": {"Stop": [{"hooks": [{"command": "say done"}]}]}})");
  run({"hooks", "install", "codex", "claude"});
  folder.write("home/.nodo/state.json", "{}");
  const std::string some = run({"hooks", "uninstall", "codex"}).output;
  EXPECT_THAT(some, HasSubstr("Codex may ask to review the other hooks again that it still has."));
  EXPECT_THAT(some, HasSubstr("The hook script stays for the other agents"));
  EXPECT_THAT(some, Not(HasSubstr("reports a missing hook")));
  const std::string last = run({"hooks", "uninstall"}).output;
  EXPECT_THAT(last,
              HasSubstr(base + "/.claude/settings.json stays, empty: it may have been there"));
  EXPECT_THAT(last, HasSubstr(base + "/.nodo stays: it holds more than the script"));
  EXPECT_THAT(last, HasSubstr("reports a missing hook until it is started again"));
}

TEST_F(HooksCommandTest, TheKeysOfTheDocumentsKeepTheirOrder) {
  const auto keys = [](const JSONValue& value) {
    std::vector<std::string> names;
    for (const auto& member : *value.object()) {
      names.push_back(member.first);
    }
    return names;
  };
  const JSONValue installed = runJSON({"hooks", "install", "--json"});
  EXPECT_THAT(keys(installed.array()->front()),
              ElementsAre("target", "path", "changed", "message"));
  for (const bool found : {true, false}) {
    std::vector<std::string> expected{"hookScriptPath", "hookScriptStatus",
                                      "expectedHookScriptFingerprint",
                                      "installedHookScriptFingerprint", "targets"};
    if (found) {
      expected.emplace_back("findings");
    }
    EXPECT_EQ(keys(found ? runJSON({"hooks", "inspect", "--json"})
                         : runJSON({"hooks", "inspect", "pi", "--json"})),
              expected);
  }
}

TEST_F(HooksCommandTest, AFailureOfOneTargetKeepsNoOtherFromItsTurn) {
  folder.write("home/.claude/settings.json", "{ not JSON");
  for (const bool json : {false, true}) {
    const Outcome outcome = run(json ? std::vector<std::string>{"hooks", "install", "--json"}
                                     : std::vector<std::string>{"hooks", "install"});
    EXPECT_EQ(outcome.exitStatus, 1);
    EXPECT_EQ(outcome.error, "nodoctl: 1 of 4 could not be installed\n");
    EXPECT_THAT(outcome.output, HasSubstr("settings.json"));
    EXPECT_THAT(outcome.output, HasSubstr("nodo.ts"));
    if (json) {
      const JSONValue document = JSONValue::parse(outcome.output);
      EXPECT_NE(document.array()->front().member("error"), nullptr);
    } else {
      EXPECT_THAT(outcome.output, HasSubstr("Claude Code: failed: "));
      EXPECT_THAT(outcome.output, Not(HasSubstr("trust")));
    }
  }
  EXPECT_EQ(folder.read("home/.claude/settings.json"), "{ not JSON");
  EXPECT_EQ(inspect({"codex", "grok", "pi"}).currentTargetCount(), 3);
}

TEST_F(HooksCommandTest, WhatCannotBeUninstalledKeepsItsScript) {
  run({"hooks", "install"});
  folder.write("home/.codex/hooks.json", "[1,");
  const Outcome outcome = run({"hooks", "uninstall", "--json"});
  EXPECT_EQ(outcome.exitStatus, 1);
  EXPECT_EQ(outcome.error, "nodoctl: 1 of 4 could not be uninstalled\n");
  const auto reports = decodeJSON<std::vector<AgentHookInstallReport>>(outcome.output);
  ASSERT_EQ(reports.size(), 4U);
  EXPECT_EQ(reports[0].message, "removed");
  EXPECT_EQ(reports[1].target, "codex");
  EXPECT_EQ(reports[1].path, (home / ".codex/hooks.json").string());
  EXPECT_EQ(reports[1].message, "failed");
  EXPECT_TRUE(reports[1].error);
  EXPECT_EQ(reports[3].message, "removed");
  EXPECT_TRUE(fs::exists(home / ".nodo/nodo-agent-hook.sh"));
}

TEST_F(HooksCommandTest, ATargetThatCannotBeInspectedIsNamedBesideTheOthers) {
  run({"hooks", "install", "grok", "pi"});
  folder.write("home/.claude/settings.json", "{ not JSON");
  const std::string base = home.string();
  const Outcome shown = run({"hooks", "inspect"});
  EXPECT_EQ(shown.exitStatus, 1);
  EXPECT_EQ(shown.error, "nodoctl: 1 of 4 could not be inspected\n");
  EXPECT_THAT(shown.output, HasSubstr("Claude Code: unknown, see below\n"));
  EXPECT_THAT(shown.output, HasSubstr("Pi:          current (" + base));
  EXPECT_THAT(shown.output,
              HasSubstr("\nProblem: It is not known whether Claude Code runs hooks: " + base +
                        "/.claude/settings.json"));
  EXPECT_THAT(run({"hooks", "inspect", "claude", "pi"}).output,
              Not(HasSubstr("'nodoctl hooks install' installs")));

  const Outcome asJSON = run({"hooks", "inspect", "--json"});
  EXPECT_EQ(asJSON.exitStatus, 1);
  const auto inspection = decodeJSON<AgentHookSetupInspection>(asJSON.output);
  ASSERT_EQ(inspection.targetCount(), 4);
  EXPECT_THAT(inspection.targets[0].error.value_or(""), HasSubstr("line 1"));
  EXPECT_EQ(inspection.targets[3].status, AgentHookComponentStatus::current);
  const auto found = decodeJSON<std::vector<Finding>>(
      jsonText(*JSONValue::parse(asJSON.output).member("findings"), JSONLayout::compact));
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found[0].kind, FindingKind::hooksUnreadable);
}

TEST_F(HooksCommandTest, AnInspectionTellsWhyHooksThatAreInstalledDoNotRun) {
  folder.write("home/.claude/settings.json", R"({"disableAllHooks": true})");
  run({"hooks", "install", "claude", "codex"});
  fs::remove(folder / "bin/nodoctl");
  startedAs = (folder / "bin/nodoctl").string();
  const Outcome outcome = run({"hooks", "inspect"});
  EXPECT_EQ(outcome.exitStatus, 0);
  for (const char* text : {"Problem: The hooks find no nodoctl: ", "/bin/nodoctl is no program",
                           "Problem: Claude Code runs no hooks of nodo: ",
                           "Problem: Codex does not run nodo's hooks: "}) {
    EXPECT_THAT(outcome.output, HasSubstr(text));
  }
}

TEST_F(HooksCommandTest, TheEnvironmentSaysNothingOfTheAgentsOfAnotherHome) {
  run({"hooks", "install", "claude"});
  environment["CLAUDE_CONFIG_DIR"] = (folder / "elsewhere").string();
  EXPECT_THAT(run({"hooks", "inspect", "claude"}).output, HasSubstr("CLAUDE_CONFIG_DIR"));
  EXPECT_THAT(run({"hooks", "inspect", "claude", "--home", home.string()}).output,
              Not(HasSubstr("CLAUDE_CONFIG_DIR")));
}

TEST_F(HooksCommandTest, AWrongTargetIsAWrongUse) {
  for (const char* command : {"install", "uninstall", "inspect"}) {
    expectWrongUse({"hooks", command, "claude", "Pi"},
                   "nodoctl: there is no agent \"Pi\"; did you mean \"pi\"?\n");
    expectWrongUse({"hooks", command, "cluade"},
                   "nodoctl: there is no agent \"cluade\"; did you mean \"claude\"?\n");
    expectWrongUse({"hooks", command, "vim"},
                   "nodoctl: there is no agent \"vim\"; there are claude, codex, grok, pi\n");
    expectWrongUse({"hooks", command, "--jsno"},
                   "nodoctl: there is no option \"--jsno\"; did you mean \"--json\"?\n");
    expectWrongUse({"hooks", command, "--hmoe=/root"},
                   "nodoctl: there is no option \"--hmoe\"; did you mean \"--home\"?\n");
    expectWrongUse({"hooks", command, ""}, "nodoctl: there is no agent \"\"; there are ");
    expectWrongUse({"hooks", command, "status"},
                   "nodoctl: there is no agent \"status\"; there are ");
    expectWrongUse({"hooks", command, "--simulate"}, "--simulate");
    expectWrongUse({"hooks", command, "--home"}, "--home");
  }
  expectWrongUse({"hooks"}, "No command given");
  expectWrongUse({"hooks", "instal"}, "instal");
  expectWrongUse({"hooks", "install", "\x1b[2J"}, "\\u{1b}[2J");
}

TEST_F(HooksCommandTest, EveryCommandExplainsItself) {
  const struct {
    std::vector<std::string> command;
    const char* usage;
  } cases[] = {
      {{"hooks"}, "nodoctl hooks"},
      {{"hooks", "install"}, "nodoctl hooks install"},
      {{"hooks", "uninstall"}, "nodoctl hooks uninstall"},
      {{"hooks", "inspect"}, "nodoctl hooks inspect"},
  };

  for (auto [command, usage] : cases) {
    command.emplace_back("--help");
    const Outcome help = run(command);
    EXPECT_EQ(help.exitStatus, 0);
    EXPECT_THAT(help.output, HasSubstr(std::string("Usage: ") + usage + " ["));
    command.back() = "--version";
    EXPECT_THAT(run(command).output, HasSubstr("nodoctl "));
  }
  EXPECT_THAT(run({"hooks", "install", "--help"}).output, HasSubstr("claude|codex|grok|pi"));
}

}  // namespace
}  // namespace nodo::nodoctl
