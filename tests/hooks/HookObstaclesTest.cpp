#include <NODOCore/hooks/HookObstacles.h>
#include <NODOCore/hooks/HookScript.h>
#include <testing/TestData.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <tests/hooks/InstallerFixture.h>

namespace nodo {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using Kind = HookObstacleKind;

class HookObstaclesTest : public InstallerFixture {
 protected:
  HookObstaclesTest() { writeTool("bin/nodoctl"); }

  void writeTool(const std::string& name) const {
    home.write(name, "#!/bin/sh\n");
    fs::permissions(home / name, fs::perms::owner_all);
  }

  void installFor(const std::vector<AgentHookTarget>& targets) const {
    AgentHookInstaller(home.path(), std::nullopt, (home / "bin/nodoctl").string()).install(targets);
  }

  std::vector<HookObstacle> obstacles() const {
    std::vector<HookObstacle> found;
    installer().inspectReportingFailures(all(), surroundings, found);
    return found;
  }

  HookObstacle obstacle(Kind kind, std::optional<AgentHookTarget> target,
                        const fs::path& place) const {
    return {kind, target, place.string()};
  }

  // A file that Codex 0.169 wrote, as if it had been for this home.
  void takeFromCodex(const std::string& data, const std::string& file) const {
    const std::string inItsHome = "/home/user";
    std::string text = test::testDataText("codex/" + data);
    for (std::size_t at = 0; (at = text.find(inItsHome, at)) != std::string::npos;) {
      text.replace(at, inItsHome.size(), home.path().string());
    }
    home.write(file, text);
  }

  test::TemporaryFolder root;
  HookSurroundings surroundings{.root = root.path()};
};

TEST_F(HookObstaclesTest, HooksThatAreNotInstalledHaveNone) {
  home.write(claudeFile, R"({"disableAllHooks": true})");
  home.write(codexConfigFile, "[features]\nhooks = false\n");
  EXPECT_THAT(obstacles(), IsEmpty());
}

TEST_F(HookObstaclesTest, HooksThatRunHaveNone) {
  installFor(all());
  takeFromCodex("trusted.toml", codexConfigFile);
  EXPECT_THAT(obstacles(), IsEmpty());
}

// ---- the script and its tool

TEST_F(HookObstaclesTest, TheCandidatesAreReadAsTheShellReadsThem) {
  for (const char* path : {"/usr/bin/nodoctl", "/a b/nodoctl", "/it's/nodoctl", "/'", "/a\n)\n\"b",
                           "/$HOME/\\nodoctl"}) {
    EXPECT_THAT(
        nodoctlCandidates(hookScriptText(path), "/home/u"),
        ElementsAre("/Applications/nodo.app/Contents/Library/Helpers/nodoctl",
                    "/home/u/Applications/nodo.app/Contents/Library/Helpers/nodoctl", path));
  }
  EXPECT_EQ(nodoctlCandidates(hookScriptText(""), "/home/u").size(), 2U);
}

TEST_F(HookObstaclesTest, AScriptOfSomebodyElseHasNoCandidates) {
  for (const char* text : {"", "#!/bin/sh\n", "local candidates=(\n", "local candidates=(\n'",
                           "local candidates=(\n)\n'/x'", "local candidates=(\n  /x\n)"}) {
    EXPECT_LE(nodoctlCandidates(text, "/home/u").size(), 1U) << text;
    EXPECT_THAT(nodoctlCandidates(text, "/home/u"),
                ::testing::Not(::testing::Contains(fs::path("/x"))));
  }
}

TEST_F(HookObstaclesTest, AToolThatMovedIsNamed) {
  installFor({AgentHookTarget::pi});
  const auto expected = obstacle(Kind::toolMissing, std::nullopt, home / "bin/nodoctl");
  fs::permissions(home / "bin/nodoctl", fs::perms::owner_read);
  EXPECT_THAT(obstacles(), ElementsAre(expected));
  fs::remove(home / "bin/nodoctl");
  EXPECT_THAT(obstacles(), ElementsAre(expected));
  fs::create_directory(home / "bin/nodoctl");
  EXPECT_THAT(obstacles(), ElementsAre(expected));
}

TEST_F(HookObstaclesTest, OneCandidateIsEnough) {
  installFor({AgentHookTarget::pi});
  fs::remove(home / "bin/nodoctl");
  writeTool("Applications/nodo.app/Contents/Library/Helpers/nodoctl");
  EXPECT_THAT(obstacles(), IsEmpty());
}

TEST_F(HookObstaclesTest, AToolThatTheEnvironmentNamesIsEnough) {
  installFor({AgentHookTarget::pi});
  fs::remove(home / "bin/nodoctl");
  writeTool("other/nodoctl");
  surroundings.environment["NODOCTL_PATH"] = (home / "other/nodoctl").string();
  EXPECT_THAT(obstacles(), IsEmpty());
  surroundings.environment["NODOCTL_PATH"] = (home / "gone").string();
  EXPECT_EQ(obstacles().size(), 1U);
}

TEST_F(HookObstaclesTest, AScriptThatCannotBeRunIsOneForAllAgents) {
  installFor({AgentHookTarget::grok, AgentHookTarget::pi});
  const auto expected = obstacle(Kind::scriptMissing, std::nullopt, home / scriptFile);
  fs::permissions(home / scriptFile, fs::perms(0644));
  EXPECT_THAT(obstacles(), ElementsAre(expected));
  fs::remove(home / scriptFile);
  EXPECT_THAT(obstacles(), ElementsAre(expected));
}

// ---- Claude Code

TEST_F(HookObstaclesTest, ASettingsFileMaySwitchAllHooksOff) {
  home.write(claudeFile, R"({"disableAllHooks": true})");
  installFor({AgentHookTarget::claude});
  EXPECT_THAT(obstacles(),
              ElementsAre(obstacle(Kind::switchedOff, AgentHookTarget::claude, home / claudeFile)));
  for (const char* harmless : {R"({"disableAllHooks": false})", R"({"disableAllHooks": "true"})",
                               R"({"disableAllHooks": 1})", R"({"allowManagedHooksOnly": true})"}) {
    home.write(claudeFile, harmless);
    installFor({AgentHookTarget::claude});
    EXPECT_THAT(obstacles(), IsEmpty()) << harmless;
  }
}

TEST_F(HookObstaclesTest, ManagedSettingsComeFirst) {
  installFor({AgentHookTarget::claude});
  for (const char* file : {"etc/claude-code/managed-settings.json",
                           "Library/Application Support/ClaudeCode/managed-settings.json"}) {
    const auto expected = obstacle(Kind::switchedOff, AgentHookTarget::claude, root.path() / file);
    root.write(file, R"({"disableAllHooks": true})");
    EXPECT_THAT(obstacles(), ElementsAre(expected));
    root.write(file, R"({"allowManagedHooksOnly": true, "disableAllHooks": false})");
    EXPECT_THAT(obstacles(), ElementsAre(expected));
    for (const char* silent : {"{ no JSON", "[]", "{}"}) {
      root.write(file, silent);
      EXPECT_THAT(obstacles(), IsEmpty()) << silent;
    }
    fs::remove(root / file);
  }
  home.write(claudeFile, R"({"disableAllHooks": true})");
  installFor({AgentHookTarget::claude});
  root.write("etc/claude-code/managed-settings.json", R"({"disableAllHooks": false})");
  EXPECT_THAT(obstacles(), IsEmpty());
}

TEST_F(HookObstaclesTest, AProjectsOwnSettingsCountWhereOneStands) {
  installFor({AgentHookTarget::claude});
  for (const char* file : {"app/.claude/settings.local.json", "app/.claude/settings.json"}) {
    home.write(file, R"({"disableAllHooks": true})");
    surroundings.workingFolder.clear();
    EXPECT_THAT(obstacles(), IsEmpty());
    surroundings.workingFolder = home / "app";
    EXPECT_THAT(obstacles(),
                ElementsAre(obstacle(Kind::switchedOff, AgentHookTarget::claude, home / file)));
    fs::remove(home / file);
  }
  surroundings.workingFolder = home.path();
  EXPECT_THAT(obstacles(), IsEmpty());
}

// ---- another folder

TEST_F(HookObstaclesTest, AnAgentThatReadsAnotherFolderHasNoHooksThere) {
  installFor({AgentHookTarget::claude, AgentHookTarget::codex});
  takeFromCodex("trusted.toml", codexConfigFile);
  surroundings.environment = {{"CLAUDE_CONFIG_DIR", (home / "claude").string()},
                              {"CODEX_HOME", (home / "codex").string()}};
  EXPECT_THAT(
      obstacles(),
      ElementsAre(obstacle(Kind::configuredElsewhere, AgentHookTarget::claude, home / "claude"),
                  obstacle(Kind::configuredElsewhere, AgentHookTarget::codex, home / "codex")));
  home.write("claude/settings.json", home.read(claudeFile));
  home.write("codex/hooks.json", home.read(codexFile));
  EXPECT_THAT(obstacles(), IsEmpty());
}

TEST_F(HookObstaclesTest, TheSameFolderByAnotherNameIsNoOther) {
  installFor({AgentHookTarget::claude});
  fs::create_directory_symlink(home / ".claude", home / "link");
  for (const std::string& named :
       {(home / ".claude").string(), (home / ".claude/").string(), (home / "link").string(),
        (home / "x/../.claude").string(), std::string()}) {
    surroundings.environment["CLAUDE_CONFIG_DIR"] = named;
    EXPECT_THAT(obstacles(), IsEmpty()) << named;
  }
}

// ---- Codex, by what it wrote itself before and after a person's word

TEST_F(HookObstaclesTest, CodexNotesWhatAPersonTrusts) {
  installFor({AgentHookTarget::codex});
  const auto found = [&](Kind kind) {
    return ElementsAre(obstacle(kind, AgentHookTarget::codex, home / codexConfigFile));
  };
  takeFromCodex("hooks.json", codexFile);
  takeFromCodex("not-trusted.toml", codexConfigFile);
  EXPECT_THAT(obstacles(), found(Kind::notTrusted));
  takeFromCodex("trusted.toml", codexConfigFile);
  EXPECT_THAT(obstacles(), IsEmpty());
  takeFromCodex("switched-off.toml", codexConfigFile);
  EXPECT_THAT(obstacles(), found(Kind::switchedOff));
  fs::remove(home / codexConfigFile);
  EXPECT_THAT(obstacles(), found(Kind::notTrusted));
}

TEST_F(HookObstaclesTest, CodexKnowsAHookByItsPlaceAmongOthers) {
  installFor({AgentHookTarget::codex});
  takeFromCodex("hooks-behind-others.json", codexFile);
  takeFromCodex("trusted-behind-others.toml", codexConfigFile);
  EXPECT_THAT(obstacles(), IsEmpty());
  takeFromCodex("trusted.toml", codexConfigFile);
  EXPECT_EQ(obstacles().at(0).kind, Kind::notTrusted);
}

TEST_F(HookObstaclesTest, CodexKeepsSilentOfWhatNobodyUnderstands) {
  installFor({AgentHookTarget::codex});
  for (const std::string& text : {std::string("[features"), std::string("a = \xFF"),
                                  "a = \"" + std::string(3000, '.') + "\""}) {
    home.write(codexConfigFile, text);
    EXPECT_THAT(obstacles(), IsEmpty());
  }
  for (const char* odd : {"hooks = 5", "[hooks]\nstate = []", "[hooks.state]\nx = 1"}) {
    home.write(codexConfigFile, odd);
    EXPECT_EQ(obstacles().at(0).kind, Kind::notTrusted) << odd;
  }
  home.write(codexConfigFile, "[features]\nhooks = false\n");
  EXPECT_EQ(obstacles().at(0).kind, Kind::switchedOff);
}

// ---- beside them, targets that cannot be read

TEST_F(HookObstaclesTest, ATargetThatCannotBeReadKeepsNoOtherFromBeingInspected) {
  installFor(all());
  takeFromCodex("not-trusted.toml", codexConfigFile);
  home.write(claudeFile, "{\n  // mine\n}");
  fs::remove(home / grokFile);
  fs::create_directory(home / grokFile);
  std::vector<HookObstacle> found;
  const AgentHookSetupInspection inspection =
      installer().inspectReportingFailures(all(), surroundings, found);
  ASSERT_EQ(inspection.targetCount(), 4);
  EXPECT_THAT(inspection.targets[0].error.value_or(""), StartsWith((home / claudeFile).string()));
  EXPECT_THAT(inspection.targets[0].error.value_or(""), HasSubstr("line 2"));
  EXPECT_THAT(inspection.targets[2].error.value_or(""), HasSubstr((home / grokFile).string()));
  for (const std::size_t readable : {1U, 3U}) {
    EXPECT_EQ(inspection.targets[readable].error, std::nullopt);
    EXPECT_EQ(inspection.targets[readable].status, AgentHookComponentStatus::current);
  }
  EXPECT_EQ(found.size(), 1U);
  EXPECT_ANY_THROW(installer().inspect(all()));
}

}  // namespace
}  // namespace nodo
