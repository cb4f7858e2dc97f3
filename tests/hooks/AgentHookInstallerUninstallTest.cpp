#include <filesystem>
#include <string>

#include <tests/hooks/InstallerFixture.h>

namespace nodo {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

class AgentHookInstallerUninstallTest : public InstallerFixture {
 protected:
  std::vector<AgentHookInstallReport> uninstall() const { return installer().uninstall(all()); }

  using InstallerFixture::uninstall;
};

TEST_F(AgentHookInstallerUninstallTest, UninstallingAllTargetsTakesTheScriptToo) {
  install();
  EXPECT_THAT(uninstall(), ElementsAre(report("claude", claudeFile, true, "removed"),
                                       report("codex", codexFile, true, "removed"),
                                       report("grok", grokFile, true, "removed"),
                                       report("pi", piFile, true, "removed"),
                                       report("hook-script", scriptFile, true, "removed")));
  EXPECT_FALSE(exists(scriptFile));
  EXPECT_FALSE(exists(grokFile));
  EXPECT_FALSE(exists(piFile));
  EXPECT_EQ(home.read(claudeFile), "{}\n");
  EXPECT_EQ(home.read(codexConfigFile), "[features]\nhooks = true\n");
}

TEST_F(AgentHookInstallerUninstallTest, WithNothingInstalledEveryReportSaysSo) {
  EXPECT_THAT(uninstall(), ElementsAre(report("claude", claudeFile, false, "not installed"),
                                       report("codex", codexFile, false, "not installed"),
                                       report("grok", grokFile, false, "not installed"),
                                       report("pi", piFile, false, "not installed"),
                                       report("hook-script", scriptFile, false, "not present")));
  EXPECT_THAT(home.names(), IsEmpty());
}

TEST_F(AgentHookInstallerUninstallTest, TheTargetsCountAsASet) {
  install();
  using T = AgentHookTarget;
  const auto reports = installer().uninstall({T::pi, T::grok, T::pi, T::codex, T::claude});
  ASSERT_EQ(reports.size(), 6U);
  EXPECT_EQ(reports[2], report("pi", piFile, false, "not installed"));
  EXPECT_EQ(reports[5], report("hook-script", scriptFile, true, "removed"));
}

TEST_F(AgentHookInstallerUninstallTest, UninstallingSomeTargetsLeavesTheScript) {
  install();
  using T = AgentHookTarget;
  EXPECT_EQ(installer().uninstall({T::claude}).size(), 1U);
  EXPECT_EQ(installer().uninstall({T::codex, T::grok, T::pi}).size(), 3U);
  EXPECT_TRUE(exists(scriptFile));
}

TEST_F(AgentHookInstallerUninstallTest, EveryEventIsCleanedAndEmptyOnesGo) {
  home.write(claudeFile,
             R"({"a": 1, "hooks": {)"
             R"("Stop": [{"hooks": [{"command": "claude-hook.sh"}]}],)"
             R"("Start": [{"hooks": [{"command": "claude-hook.sh"}, {"command": "x"}]}],)"
             R"("None": [], "Odd": [1], "Text": "claude-hook.sh"}})");
  EXPECT_EQ(uninstall(AgentHookTarget::claude), report("claude", claudeFile, true, "removed"));
  EXPECT_TRUE(holds(claudeFile, R"({"a": 1, "hooks": {"Start": [{"hooks": [{"command": "x"}]}],)"
                                R"("None": [], "Odd": [1], "Text": "claude-hook.sh"}})"));
}

TEST_F(AgentHookInstallerUninstallTest, AnEventThatOccursTwiceDoesNotComeBack) {
  home.write(claudeFile,
             R"({"hooks": {"Stop": [{"hooks": [{"command": "overridden"}]}], "Zed": [],)"
             R"("Stop": [{"hooks": [{"command": "claude-hook.sh"}]}]}})");
  EXPECT_TRUE(uninstall(AgentHookTarget::claude).changed);
  EXPECT_TRUE(holds(claudeFile, R"({"hooks": {"Zed": []}})"));
}

TEST_F(AgentHookInstallerUninstallTest, AnotherAgentsHookOfTheSharedScriptSurvives) {
  const std::string foreign =
      "{\"hooks\":{\"Stop\":[" + group(AgentHookTarget::codex, "Stop") + "]}}";
  home.write(claudeFile, foreign);
  EXPECT_EQ(uninstall(AgentHookTarget::claude),
            report("claude", claudeFile, false, "not installed"));
  EXPECT_EQ(home.read(claudeFile), foreign);
}

TEST_F(AgentHookInstallerUninstallTest, AFileWithoutOurHooksIsNotWritten) {
  for (const char* content : {"", "{}", "[1]", "{ \"hooks\" :5}", "{\"hooks\":{\"Stop\":[ ]}}"}) {
    home.write(claudeFile, content);
    home.write(codexFile, content);
    EXPECT_FALSE(uninstall(AgentHookTarget::claude).changed);
    EXPECT_FALSE(uninstall(AgentHookTarget::codex).changed);
    EXPECT_EQ(home.read(claudeFile), content);
    EXPECT_EQ(home.read(codexFile), content);
  }
}

TEST_F(AgentHookInstallerUninstallTest, NoEmptyHooksFileIsLeftToCodex) {
  install(AgentHookTarget::codex);
  EXPECT_EQ(uninstall(AgentHookTarget::codex), report("codex", codexFile, true, "removed"));
  EXPECT_FALSE(exists(codexFile));
  home.write(codexFile, R"({"description": "mine"})");
  install(AgentHookTarget::codex);
  uninstall(AgentHookTarget::codex);
  EXPECT_EQ(home.read(codexFile), "{\n  \"description\": \"mine\"\n}\n");
}

TEST_F(AgentHookInstallerUninstallTest, ALinkToCodexsHooksStaysAndSoDoesItsTarget) {
  home.write("dotfiles/hooks.json", "");
  fs::create_directory(home / ".codex");
  fs::create_symlink("../dotfiles/hooks.json", home / codexFile);
  install(AgentHookTarget::codex);
  EXPECT_EQ(uninstall(AgentHookTarget::codex), report("codex", codexFile, true, "removed"));
  EXPECT_TRUE(fs::is_symlink(home / codexFile));
  EXPECT_EQ(home.read("dotfiles/hooks.json"), "{\n  \"hooks\": {}\n}\n");
}

TEST_F(AgentHookInstallerUninstallTest, AFileUnderOurNameThatIsNotOursStays) {
  const std::string foreign = R"({"hooks": {"Stop": [{"hooks": [{"command": "other"}]}]}})";
  home.write(grokFile, foreign);
  EXPECT_EQ(uninstall(AgentHookTarget::grok), report("grok", grokFile, false, "not installed"));
  EXPECT_EQ(home.read(grokFile), foreign);
  for (const char* text : {"", "nodo-agent-hook.sh", "NODO_HOOK_AGENT: \"pi\"",
                           "nodo-agent-hook.sh NODO_HOOK_AGENT: \"codex\""}) {
    home.write(piFile, text);
    EXPECT_EQ(uninstall(AgentHookTarget::pi), report("pi", piFile, false, "not installed"));
    EXPECT_EQ(home.read(piFile), text);
  }
}

TEST_F(AgentHookInstallerUninstallTest, OlderFilesOfOursGo) {
  home.write(grokFile,
             R"({"hooks": {"Stop": [{"hooks": [{"command": "x/nodo-agent-hook.sh"}]}]}, "x": 1})");
  EXPECT_EQ(uninstall(AgentHookTarget::grok), report("grok", grokFile, true, "removed"));
  home.write(piFile, "// nodo-agent-hook.sh\nNODO_HOOK_AGENT: \"pi\" \xFF");
  EXPECT_EQ(uninstall(AgentHookTarget::pi), report("pi", piFile, true, "removed"));
  EXPECT_FALSE(exists(grokFile));
  EXPECT_FALSE(exists(piFile));
}

TEST_F(AgentHookInstallerUninstallTest, TheFirstFailureEndsAnUninstallation) {
  install();
  home.write(codexFile, "no JSON");
  EXPECT_THROW(uninstall(), std::exception);
  EXPECT_EQ(home.read(claudeFile), "{}\n");
  EXPECT_EQ(home.read(codexFile), "no JSON");
  EXPECT_TRUE(exists(grokFile));
  EXPECT_TRUE(exists(scriptFile));
}

TEST_F(AgentHookInstallerUninstallTest, AFailureIsReportedAndTheOtherTargetsGoOnWithoutTheScript) {
  install();
  home.write(codexFile, "no JSON");
  const auto reports = installer().uninstallReportingFailures(all());
  ASSERT_EQ(reports.size(), 4U);
  EXPECT_EQ(reports[0], report("claude", claudeFile, true, "removed"));
  EXPECT_EQ(reports[1].target, "codex");
  EXPECT_EQ(reports[1].path, (home / codexFile).string());
  EXPECT_FALSE(reports[1].changed);
  EXPECT_EQ(reports[1].message, "failed");
  EXPECT_EQ(reports[1].error, (home / codexFile).string() +
                                  ", line 1: this is not valid JSON. Repair it, then run this "
                                  "again.");
  EXPECT_EQ(reports[2], report("grok", grokFile, true, "removed"));
  EXPECT_EQ(reports[3], report("pi", piFile, true, "removed"));
  EXPECT_EQ(home.read(codexFile), "no JSON");
  EXPECT_TRUE(exists(scriptFile));
}

TEST_F(AgentHookInstallerUninstallTest, WithoutAFailureNothingIsReportedOtherwise) {
  install();
  AgentHookInstaller other(home / "other", std::nullopt, "/usr/bin/nodoctl");
  other.install(all());
  auto reports = other.uninstallReportingFailures(all());
  for (auto& report : reports) {
    report.path.replace(0, (home / "other").string().size(), home.path().string());
  }
  EXPECT_EQ(reports, uninstall());
  EXPECT_FALSE(exists("other/.nodo/nodo-agent-hook.sh"));
}

TEST_F(AgentHookInstallerUninstallTest, AScriptThatCannotBeRemovedIsReported) {
  fs::create_directories(home / scriptFile);
  const auto reports = installer().uninstallReportingFailures(all());
  ASSERT_EQ(reports.size(), 5U);
  EXPECT_EQ(reports[4].target, "hook-script");
  EXPECT_EQ(reports[4].path, (home / scriptFile).string());
  EXPECT_EQ(reports[4].message, "failed");
  EXPECT_THAT(reports[4].error.value(), StartsWith("Unable to remove"));
}

TEST_F(AgentHookInstallerUninstallTest, AFolderInTheScriptsPlaceStays) {
  fs::create_directories(home / scriptFile);
  EXPECT_THROW(uninstall(), std::system_error);
  EXPECT_TRUE(exists(scriptFile));
}

}  // namespace
}  // namespace nodo
