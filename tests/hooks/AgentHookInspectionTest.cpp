#include <NODOCore/base/Errors.h>
#include <NODOCore/hooks/HookScript.h>
#include <testing/UnprivilegedUser.h>

#include <filesystem>
#include <string>
#include <system_error>

#include <tests/hooks/InstallerFixture.h>

namespace nodo {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using Status = AgentHookComponentStatus;
using test::UnprivilegedUser;

class AgentHookInspectionTest : public InstallerFixture {
 protected:
  AgentHookSetupInspection inspect() const { return installer().inspect(all()); }

  Status statusOf(AgentHookTarget target) const {
    return installer().inspect({target}).targets.at(0).status;
  }

  std::string settingsWith(const std::string& events) const {
    return "{\"hooks\":{" + events + "}}";
  }
};

TEST_F(AgentHookInspectionTest, AnEmptyHomeMissesEverythingAndStaysEmpty) {
  const auto found = inspect();
  EXPECT_EQ(found.hookScriptPath, (home / scriptFile).string());
  EXPECT_EQ(found.hookScriptStatus, Status::missing);
  EXPECT_EQ(found.expectedHookScriptFingerprint, fingerprint(hookScriptText("/usr/bin/nodoctl")));
  EXPECT_EQ(found.installedHookScriptFingerprint, std::nullopt);
  const auto missing = [&](AgentHookTarget target, const char* file) {
    return AgentHookTargetInspection{target, (home / file).string(), Status::missing};
  };
  EXPECT_THAT(found.targets, ElementsAre(missing(AgentHookTarget::claude, claudeFile),
                                         missing(AgentHookTarget::codex, codexFile),
                                         missing(AgentHookTarget::grok, grokFile),
                                         missing(AgentHookTarget::pi, piFile)));
  EXPECT_THAT(home.names(), IsEmpty());
}

TEST_F(AgentHookInspectionTest, WhatWasJustInstalledIsCurrent) {
  install();
  const auto found = inspect();
  EXPECT_TRUE(found.isCurrent());
  EXPECT_FALSE(found.needsUpdate());
  EXPECT_EQ(found.currentTargetCount(), 4);
  EXPECT_EQ(found.installedHookScriptFingerprint, found.expectedHookScriptFingerprint);
}

TEST_F(AgentHookInspectionTest, WhatWasUninstalledIsMissing) {
  install();
  installer().uninstall(all());
  EXPECT_EQ(inspect().installedTargetCount(), 0);
  EXPECT_EQ(inspect().hookScriptStatus, Status::missing);
}

TEST_F(AgentHookInspectionTest, AScriptForAnotherNodoctlIsOutdated) {
  install();
  const auto found =
      AgentHookInstaller(home.path(), std::nullopt, "/opt/nodoctl").inspect({AgentHookTarget::pi});
  EXPECT_EQ(found.hookScriptStatus, Status::outdated);
  EXPECT_TRUE(found.needsUpdate());
  EXPECT_EQ(found.targets.at(0).status, Status::current);
}

TEST_F(AgentHookInspectionTest, AScriptWithOneByteChangedIsOutdated) {
  install();
  std::string text = home.read(scriptFile);
  text.back() = '1';
  home.write(scriptFile, text);
  const auto found = inspect();
  EXPECT_EQ(found.hookScriptStatus, Status::outdated);
  EXPECT_EQ(found.installedHookScriptFingerprint, fingerprint(text));
  EXPECT_NE(found.installedHookScriptFingerprint, found.expectedHookScriptFingerprint);
}

TEST_F(AgentHookInspectionTest, TheRightToExecuteComesBeforeTheContent) {
  install();
  fs::permissions(home / scriptFile, fs::perms(0644));
  EXPECT_EQ(inspect().hookScriptStatus, Status::notExecutable);
  EXPECT_FALSE(inspect().needsUpdate());
  EXPECT_EQ(inspect().installedHookScriptFingerprint, inspect().expectedHookScriptFingerprint);
  home.write(scriptFile, "other");
  EXPECT_EQ(inspect().hookScriptStatus, Status::notExecutable);
  EXPECT_EQ(inspect().installedHookScriptFingerprint, fingerprint("other"));
}

TEST_F(AgentHookInspectionTest, AScriptThatCannotBeReadIsMissing) {
  install();
  home.write(scriptFile, "\xFF");
  EXPECT_EQ(inspect().hookScriptStatus, Status::missing);
  EXPECT_EQ(inspect().installedHookScriptFingerprint, std::nullopt);
  home.write(scriptFile, hookScriptText("/usr/bin/nodoctl"));
  fs::permissions(home / scriptFile, fs::perms(0));
  fs::permissions(home.path(), fs::perms(0755));
  {
    const UnprivilegedUser user;
    EXPECT_EQ(inspect().hookScriptStatus, Status::missing);
  }
  fs::remove(home / scriptFile);
  fs::create_directory(home / scriptFile);
  EXPECT_EQ(inspect().hookScriptStatus, Status::missing);
}

TEST_F(AgentHookInspectionTest, OurGroupsBesideForeignOnesAreCurrent) {
  std::string events = ourEvents(AgentHookTarget::claude);
  events.insert(events.find('[') + 1, R"({"hooks":[{"command":"other"}]},)");
  home.write(claudeFile, settingsWith(events + R"(,"Stop":[{"hooks":[]}])"));
  EXPECT_EQ(statusOf(AgentHookTarget::claude), Status::current);
}

TEST_F(AgentHookInspectionTest, ThreeOfFourEventsAreOutdated) {
  const std::string events = ourEvents(AgentHookTarget::claude);
  home.write(claudeFile, settingsWith(events.substr(0, events.find(",\"PostToolUse\""))));
  EXPECT_EQ(statusOf(AgentHookTarget::claude), Status::outdated);
}

TEST_F(AgentHookInspectionTest, AnotherAgentsHookOfTheScriptCountsAsOutdated) {
  home.write(claudeFile, settingsWith("\"Stop\":[" + group(AgentHookTarget::codex, "Stop") + "]"));
  EXPECT_EQ(statusOf(AgentHookTarget::claude), Status::outdated);
}

TEST_F(AgentHookInspectionTest, WhereNoCommandNamesTheScriptItIsMissing) {
  for (const char* content :
       {"", "{}", "[]", "\"nodo-agent-hook.sh\"", R"({"hooks":5})", R"({"hooks":{"Stop":5}})",
        R"({"hooks":{"Stop":[5,{"hooks":5},{"hooks":["nodo-agent-hook.sh"]}]}})",
        R"({"hooks":{"Stop":[{"hooks":[{"command":"claude-hook.sh"}]}]}})",
        R"({"other":{"Stop":[{"hooks":[{"command":"nodo-agent-hook.sh"}]}]}})"}) {
    home.write(claudeFile, content);
    EXPECT_EQ(statusOf(AgentHookTarget::claude), Status::missing) << content;
  }
}

TEST_F(AgentHookInspectionTest, LayoutAndSpellingOfAGroupDoNotCount) {
  std::string events = ourEvents(AgentHookTarget::grok);
  events.replace(events.find("\"timeout\":5"), 11, "\"timeout\" : 50e-1");
  home.write(grokFile, settingsWith(events));
  EXPECT_EQ(statusOf(AgentHookTarget::grok), Status::current);
}

TEST_F(AgentHookInspectionTest, AnExtensionIsComparedWithTheTextOfNow) {
  install(AgentHookTarget::pi);
  EXPECT_EQ(statusOf(AgentHookTarget::pi), Status::current);
  home.write(piFile, home.read(piFile) + " ");
  EXPECT_EQ(statusOf(AgentHookTarget::pi), Status::outdated);
  home.write(piFile, "nodo-agent-hook.sh NODO_HOOK_AGENT");
  EXPECT_EQ(statusOf(AgentHookTarget::pi), Status::outdated);
  for (const char* foreign : {"", "nodo-agent-hook.sh", "NODO_HOOK_AGENT", "export default 1;"}) {
    home.write(piFile, foreign);
    EXPECT_EQ(statusOf(AgentHookTarget::pi), Status::missing) << foreign;
  }
}

TEST_F(AgentHookInspectionTest, AFileThatCannotBeUnderstoodIsAnError) {
  home.write(claudeFile, "no JSON");
  home.write(piFile, "nodo-agent-hook.sh \xFF");
  for (const auto& [target, file] :
       {std::pair(AgentHookTarget::claude, claudeFile), std::pair(AgentHookTarget::pi, piFile)}) {
    try {
      statusOf(target);
      FAIL() << file;
    } catch (const DecodingError& error) {
      EXPECT_THAT(error.what(), StartsWith((home / file).string()));
    }
  }
  fs::create_directories(home / codexFile);
  EXPECT_THROW(statusOf(AgentHookTarget::codex), std::system_error);
}

TEST_F(AgentHookInspectionTest, EachTargetIsInspectedOnceWhereItFirstAppears) {
  using T = AgentHookTarget;
  const auto found = installer().inspect({T::pi, T::claude, T::pi, T::claude});
  ASSERT_EQ(found.targetCount(), 2);
  EXPECT_EQ(found.targets[0].target, T::pi);
  EXPECT_EQ(found.targets[1].target, T::claude);
  EXPECT_EQ(installer().inspect({}).targetCount(), 0);
}

}  // namespace
}  // namespace nodo
