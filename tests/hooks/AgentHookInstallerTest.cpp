#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/hooks/HookScript.h>

#include <filesystem>
#include <string>
#include <system_error>

#include <tests/hooks/InstallerFixture.h>

namespace nodo {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

class AgentHookInstallerTest : public InstallerFixture {};

TEST_F(AgentHookInstallerTest, TheScriptLiesBelowTheHomeFolderUnlessSaidOtherwise) {
  EXPECT_EQ(AgentHookInstaller("/home/u").hookScriptPath, "/home/u/.nodo/nodo-agent-hook.sh");
  EXPECT_EQ(AgentHookInstaller("/home/u").nodoctlPath, std::nullopt);
  EXPECT_EQ(AgentHookInstaller("/home/u", "/opt/hook.sh").hookScriptPath, "/opt/hook.sh");
  EXPECT_EQ(AgentHookInstaller("/home/u", std::nullopt, "/bin/ctl").nodoctlPath, "/bin/ctl");
}

TEST_F(AgentHookInstallerTest, TheCommandNamesAgentEventAndScript) {
  EXPECT_EQ(
      hookCommand(AgentHookTarget::claude, "SessionStart", "/Users/u/.nodo/nodo-agent-hook.sh"),
      "NODO_HOOK_AGENT='claude' NODO_HOOK_EVENT='SessionStart' "
      "'/Users/u/.nodo/nodo-agent-hook.sh'");
  EXPECT_EQ(hookCommand(AgentHookTarget::pi, "x'y", "/it's here"),
            R"(NODO_HOOK_AGENT='pi' NODO_HOOK_EVENT='x'\''y' '/it'\''s here')");
}

TEST_F(AgentHookInstallerTest, AFirstInstallationWritesEveryFile) {
  EXPECT_THAT(install(), ElementsAre(report("claude", claudeFile, true, "installed"),
                                     report("codex", codexFile, true,
                                            "installed; Codex hooks feature enabled"),
                                     report("grok", grokFile, true, "installed"),
                                     report("pi", piFile, true, "installed")));
  EXPECT_EQ(home.read(scriptFile), hookScriptText("/usr/bin/nodoctl"));
  EXPECT_EQ(modeOf(scriptFile), 0755U);
  EXPECT_TRUE(holds(claudeFile, "{\"hooks\":{" + ourEvents(AgentHookTarget::claude) + "}}"));
  EXPECT_TRUE(holds(codexFile, "{\"hooks\":{" + ourEvents(AgentHookTarget::codex) + "}}"));
  EXPECT_EQ(home.read(codexConfigFile), "[features]\nhooks = true\n");
  EXPECT_TRUE(holds(grokFile, "{\"hooks\":{" + ourEvents(AgentHookTarget::grok) + "}}"));
  EXPECT_EQ(home.read(piFile), piExtensionText(home / scriptFile));
}

TEST_F(AgentHookInstallerTest, AConfigurationIsIndentedAndSortedWithoutEscapedSlashes) {
  const JSONValue group = hookGroup(AgentHookTarget::grok, "PreToolUse", "/h/nodo-agent-hook.sh");
  EXPECT_EQ(jsonText(group, JSONLayout::prettySorted),
            "{\n"
            "  \"hooks\": [\n"
            "    {\n"
            "      \"command\": \"NODO_HOOK_AGENT='grok' NODO_HOOK_EVENT='PreToolUse' "
            "'/h/nodo-agent-hook.sh'\",\n"
            "      \"timeout\": 5,\n"
            "      \"type\": \"command\"\n"
            "    }\n"
            "  ]\n"
            "}");
  home.write(claudeFile, R"({"z": {"b": 1, "a": []}, "hooks": {"Zed": []}})");
  install(AgentHookTarget::claude);
  EXPECT_THAT(home.read(claudeFile), StartsWith("{\n  \"hooks\": {\n    \"PostToolUse\": [\n"));
  EXPECT_THAT(home.read(claudeFile), ::testing::EndsWith("    \"Zed\": []\n"
                                                         "  },\n"
                                                         "  \"z\": {\n"
                                                         "    \"a\": [],\n"
                                                         "    \"b\": 1\n"
                                                         "  }\n"
                                                         "}\n"));
}

TEST_F(AgentHookInstallerTest, ASecondInstallationChangesNothing) {
  install();
  const auto script = fs::last_write_time(home / scriptFile);
  const auto settings = fs::last_write_time(home / claudeFile);
  const std::string before = home.read(claudeFile) + home.read(codexFile) + home.read(grokFile) +
                             home.read(piFile) + home.read(codexConfigFile);
  EXPECT_THAT(install(), ElementsAre(report("claude", claudeFile, false, "already installed"),
                                     report("codex", codexFile, false, "already installed"),
                                     report("grok", grokFile, false, "already installed"),
                                     report("pi", piFile, false, "already installed")));
  EXPECT_EQ(fs::last_write_time(home / scriptFile), script);
  EXPECT_EQ(fs::last_write_time(home / claudeFile), settings);
  EXPECT_EQ(home.read(claudeFile) + home.read(codexFile) + home.read(grokFile) + home.read(piFile) +
                home.read(codexConfigFile),
            before);
}

TEST_F(AgentHookInstallerTest, ADifferentNodoctlUpdatesTheScriptForEveryTarget) {
  install();
  const AgentHookInstaller other(home.path(), std::nullopt, "/opt/nodoctl");
  EXPECT_THAT(other.install(all()),
              ElementsAre(report("claude", claudeFile, true, "shared hook script updated"),
                          report("codex", codexFile, true, "shared hook script updated"),
                          report("grok", grokFile, true, "shared hook script updated"),
                          report("pi", piFile, true, "shared hook script updated")));
  EXPECT_EQ(home.read(scriptFile), hookScriptText("/opt/nodoctl"));
}

TEST_F(AgentHookInstallerTest, ATargetThatWasInstalledSaysSoAlthoughTheScriptChangedToo) {
  install(AgentHookTarget::claude);
  const AgentHookInstaller other(home.path(), std::nullopt, "/opt/nodoctl");
  EXPECT_THAT(other.install({AgentHookTarget::grok, AgentHookTarget::claude}),
              ElementsAre(report("grok", grokFile, true, "installed"),
                          report("claude", claudeFile, true, "shared hook script updated")));
}

TEST_F(AgentHookInstallerTest, AScriptThatCannotBeExecutedOrReadIsWrittenAnew) {
  install();
  fs::permissions(home / scriptFile, fs::perms(0644));
  EXPECT_EQ(install(AgentHookTarget::pi).message, "shared hook script updated");
  EXPECT_EQ(modeOf(scriptFile), 0755U);
  home.write(scriptFile, "\xFF");
  EXPECT_EQ(install(AgentHookTarget::pi).message, "shared hook script updated");
  EXPECT_EQ(home.read(scriptFile), hookScriptText("/usr/bin/nodoctl"));
  fs::permissions(home / scriptFile, fs::perms(0700));
  EXPECT_EQ(install(AgentHookTarget::pi).message, "already installed");
  EXPECT_EQ(modeOf(scriptFile), 0700U);
}

TEST_F(AgentHookInstallerTest, TheSwitchOfCodexAloneCountsAsInstalling) {
  install(AgentHookTarget::codex);
  home.write(codexConfigFile, "[features]\nhooks = false\n");
  EXPECT_EQ(install(AgentHookTarget::codex),
            report("codex", codexFile, true, "installed; Codex hooks feature enabled"));
  EXPECT_EQ(home.read(codexConfigFile), "[features]\nhooks = true\n");
}

TEST_F(AgentHookInstallerTest, TargetsAreInstalledInTheOrderAskedFor) {
  EXPECT_THAT(installer().install({AgentHookTarget::pi, AgentHookTarget::claude}),
              ElementsAre(report("pi", piFile, true, "installed"),
                          report("claude", claudeFile, true, "installed")));
  EXPECT_FALSE(exists(".codex"));
  EXPECT_FALSE(exists(".grok"));
}

TEST_F(AgentHookInstallerTest, TheFirstFailureEndsAnInstallationAndWhatWasDoneStays) {
  home.write(codexFile, "no JSON");
  EXPECT_THROW(install(), std::exception);
  EXPECT_TRUE(exists(scriptFile));
  EXPECT_TRUE(exists(claudeFile));
  EXPECT_FALSE(exists(grokFile));
}

TEST_F(AgentHookInstallerTest, AFailureIsReportedAndTheOtherTargetsGoOn) {
  home.write(codexFile, "no JSON");
  const auto reports = installer().installReportingFailures(all());
  ASSERT_EQ(reports.size(), 4U);
  EXPECT_EQ(reports[0], report("claude", claudeFile, true, "installed"));
  EXPECT_EQ(reports[1].target, "codex");
  EXPECT_EQ(reports[1].path, (home / codexFile).string());
  EXPECT_FALSE(reports[1].changed);
  EXPECT_EQ(reports[1].message, "failed");
  EXPECT_THAT(reports[1].error.value(), AllOf(StartsWith((home / codexFile).string()),
                                              EndsWith(". Repair it, then run this again.")));
  EXPECT_EQ(reports[2], report("grok", grokFile, true, "installed"));
  EXPECT_EQ(reports[3], report("pi", piFile, true, "installed"));
  EXPECT_EQ(home.read(codexFile), "no JSON");
}

TEST_F(AgentHookInstallerTest, AScriptThatCannotBeWrittenFailsEveryTargetAndTouchesNoAgent) {
  home.write(".nodo", "a file where the folder should be");
  const auto reports =
      installer().installReportingFailures({AgentHookTarget::pi, AgentHookTarget::codex});
  ASSERT_EQ(reports.size(), 2U);
  for (const auto& report : reports) {
    EXPECT_EQ(report.path, (home / scriptFile).string());
    EXPECT_FALSE(report.changed);
    EXPECT_EQ(report.message, "failed");
    EXPECT_THAT(report.error.value(), StartsWith("shared hook script: Unable to make the folder "));
    EXPECT_THAT(report.error.value(), HasSubstr((home / ".nodo").string()));
  }
  EXPECT_EQ(reports[0].target, "pi");
  EXPECT_EQ(reports[1].target, "codex");
  EXPECT_THAT(home.names(), ElementsAre(".nodo"));
  EXPECT_THROW(install(), std::system_error);
}

TEST_F(AgentHookInstallerTest, NoTargetsMeanNoReports) {
  EXPECT_THAT(installer().installReportingFailures({}), IsEmpty());
  EXPECT_THAT(installer().install({}), IsEmpty());
  fs::remove_all(home / ".nodo");
  home.write(".nodo", "a file where the folder should be");
  EXPECT_THAT(installer().installReportingFailures({}), IsEmpty());
}

TEST_F(AgentHookInstallerTest, AScriptPathThatJSONCannotHoldIsRefused) {
  const AgentHookInstaller odd(home.path(), home / "bad\xFFname" / "nodo-agent-hook.sh");
  const auto reports = odd.installReportingFailures({AgentHookTarget::claude});
  EXPECT_THAT(reports.at(0).error.value(),
              HasSubstr("in agents' settings, which hold UTF-8 text only"));
  EXPECT_THAT(home.names(), IsEmpty());
}

TEST_F(AgentHookInstallerTest, AnAbsentErrorIsLeftOutOfAReportsJSON) {
  AgentHookInstallReport report{"pi", "/x/nodo.ts", true, "installed", std::nullopt};
  EXPECT_TRUE(report.succeeded());
  EXPECT_EQ(encodeJSON(report, JSONLayout::compact),
            R"({"target":"pi","path":"/x/nodo.ts","changed":true,"message":"installed"})");
  report.error = "no";
  EXPECT_FALSE(report.succeeded());
  const std::string text = encodeJSON(report, JSONLayout::compact);
  EXPECT_THAT(text, ::testing::EndsWith(R"("message":"installed","error":"no"})"));
  EXPECT_EQ(decodeJSON<AgentHookInstallReport>(text), report);
}

}  // namespace
}  // namespace nodo
