#include <NODOCore/hooks/HookScript.h>
#include <NODOCore/power/CommandRunning.h>
#include <testing/DiskFull.h>
#include <testing/UnprivilegedUser.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <utility>

#include <sys/stat.h>
#include <tests/hooks/InstallerFixture.h>
#include <unistd.h>

namespace nodo {
namespace {

namespace fs = std::filesystem;
using test::DiskFull;
using test::UnprivilegedUser;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class AgentHookInstallerFilesTest : public InstallerFixture {
 protected:
  /// Puts `content` where the settings of Claude Code lead to over two links.
  void linkSettings(const std::string& content) const {
    home.write("dotfiles/claude/settings.json", content);
    fs::create_directory(home / ".claude");
    fs::create_symlink("../dotfiles/current.json", home / claudeFile);
    fs::create_symlink(home / "dotfiles/claude/settings.json", home / "dotfiles/current.json");
  }

  void expectLinksUntouched() const {
    EXPECT_EQ(fs::read_symlink(home / claudeFile), "../dotfiles/current.json");
    EXPECT_EQ(fs::read_symlink(home / "dotfiles/current.json"),
              home / "dotfiles/claude/settings.json");
  }

  void expectReason(const AgentHookInstallReport& report, const std::string& file,
                    const std::string& reason) const {
    EXPECT_THAT(report.error.value(), AllOf(HasSubstr((home / file).string()), HasSubstr(reason)));
  }
};

TEST_F(AgentHookInstallerFilesTest, LinksAreKeptAndTheirFinalTargetIsChanged) {
  linkSettings("{\n  \"model\": \"x\"\n}\n");
  EXPECT_EQ(install(AgentHookTarget::claude), report("claude", claudeFile, true, "installed"));
  expectLinksUntouched();
  EXPECT_TRUE(holds("dotfiles/claude/settings.json",
                    "{\"model\":\"x\",\"hooks\":{" + ourEvents(AgentHookTarget::claude) + "}}"));
  EXPECT_EQ(uninstall(AgentHookTarget::claude).message, "removed");
  expectLinksUntouched();
  EXPECT_EQ(home.read("dotfiles/claude/settings.json"), "{\n  \"model\": \"x\"\n}\n");
}

TEST_F(AgentHookInstallerFilesTest, EveryFileOfAnAgentMayBeALink) {
  for (const char* file : {codexFile, codexConfigFile, grokFile, piFile}) {
    home.write(std::string("dotfiles/") + file, "");
    fs::create_directories((home / file).parent_path());
    fs::create_symlink(home / "dotfiles" / file, home / file);
  }
  install();
  for (const char* file : {codexFile, codexConfigFile, grokFile, piFile}) {
    EXPECT_TRUE(fs::is_symlink(home / file)) << file;
    EXPECT_THAT(home.read(std::string("dotfiles/") + file), HasSubstr("hook")) << file;
  }
}

TEST_F(AgentHookInstallerFilesTest, AnAgentsFolderMayBeALink) {
  fs::create_directories(home / "dotfiles/claude");
  fs::create_directory_symlink("dotfiles/claude", home / ".claude");
  install(AgentHookTarget::claude);
  EXPECT_TRUE(fs::is_symlink(home / ".claude"));
  EXPECT_TRUE(exists("dotfiles/claude/settings.json"));
}

TEST_F(AgentHookInstallerFilesTest, LinksInACircleFail) {
  fs::create_directory(home / ".claude");
  fs::create_symlink("settings.json", home / claudeFile);
  expectReason(failureOf(AgentHookTarget::claude), claudeFile, std::strerror(ELOOP));
  EXPECT_TRUE(fs::is_symlink(home / claudeFile));
}

TEST_F(AgentHookInstallerFilesTest, AFilesModeIsKept) {
  for (const char* file : {claudeFile, codexFile, codexConfigFile, grokFile, piFile}) {
    home.write(file, "");
    fs::permissions(home / file, fs::perms(0600));
  }
  install();
  for (const char* file : {claudeFile, codexFile, codexConfigFile, grokFile, piFile}) {
    EXPECT_NE(home.read(file), "");
    EXPECT_EQ(modeOf(file), 0600U) << file;
  }
  uninstall(AgentHookTarget::claude);
  EXPECT_EQ(modeOf(claudeFile), 0600U);
}

TEST_F(AgentHookInstallerFilesTest, RootKeepsOwnerAndGroup) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "only root may give files away";
  }
  linkSettings("{}");
  ASSERT_EQ(::chown((home / "dotfiles/claude/settings.json").c_str(), 12345, 23456), 0);
  home.write(codexConfigFile, "");
  ASSERT_EQ(::chown((home / codexConfigFile).c_str(), 12345, 23456), 0);
  install();
  for (const char* file : {claudeFile, codexConfigFile}) {
    struct stat found {};

    ASSERT_EQ(::stat((home / file).c_str(), &found), 0);
    EXPECT_EQ(found.st_uid, 12345U) << file;
    EXPECT_EQ(found.st_gid, 23456U) << file;
  }
}

TEST_F(AgentHookInstallerFilesTest, WhatRootMakesInAHomeBelongsToItsOwner) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "only root may give files away";
  }
  fs::create_directory(home / "dotfiles");
  fs::create_directory(home / ".claude");
  fs::create_symlink("../dotfiles/settings.json", home / claudeFile);
  for (const char* folder : {"", "dotfiles", ".claude"}) {
    ASSERT_EQ(::chown((home / folder).c_str(), 12345, 23456), 0);
  }
  fs::create_directory(home / "system");
  home.write("system/hooks.json", "{}");
  fs::create_directory(home / ".codex");
  ASSERT_EQ(::chown((home / ".codex").c_str(), 12345, 23456), 0);
  fs::create_symlink("../system/hooks.json", home / codexFile);
  fs::create_symlink("../system/config.toml", home / codexConfigFile);
  install();
  const auto ownerOf = [this](const std::string& file) {
    struct stat found {};

    EXPECT_EQ(::lstat((home / file).c_str(), &found), 0) << file;
    return std::pair(found.st_uid, found.st_gid);
  };
  const std::pair person{uid_t{12345}, gid_t{23456}};
  for (const char* file : {".nodo", scriptFile, ".grok", ".grok/hooks", grokFile, ".pi",
                           ".pi/agent", ".pi/agent/extensions", piFile, "dotfiles/settings.json"}) {
    EXPECT_EQ(ownerOf(file), person) << file;
  }
  // What a link made root write elsewhere is no gain for whoever planted the link.
  const std::pair root{uid_t{0}, ::getegid()};
  EXPECT_EQ(ownerOf("system/hooks.json"), root);
  EXPECT_EQ(ownerOf("system/config.toml"), root);
}

TEST_F(AgentHookInstallerFilesTest, WhatIsNotJSONFailsAndStaysAsItIs) {
  const std::string deep = std::string(600, '[') + std::string(600, ']');
  for (const std::string& content :
       {std::string("no JSON"), std::string("{\"a\": 1,}"), std::string("// c\n{}"),
        std::string(" "), std::string("{\"a\": 1E400}"), std::string("{\"a\": \"\xFF\"}"),
        std::string("{\"a\": \"\\ud800\"}"), std::string("{\"a\": 1}\0", 9),
        "{\"a\": " + deep + "}"}) {
    home.write(claudeFile, content);
    home.write(codexFile, content);
    home.write(grokFile, content);
    for (const auto& [target, file] : {std::pair(AgentHookTarget::claude, claudeFile),
                                       std::pair(AgentHookTarget::codex, codexFile),
                                       std::pair(AgentHookTarget::grok, grokFile)}) {
      const auto report = failureOf(target);
      EXPECT_EQ(report.path, (home / file).string());
      EXPECT_THAT(report.error.value(), AllOf(StartsWith((home / file).string()), HasSubstr("JSON"),
                                              EndsWith(". Repair it, then run this again.")));
      EXPECT_THROW(uninstall(target), std::exception) << content;
      EXPECT_EQ(home.read(file), content);
    }
  }
  EXPECT_FALSE(exists(codexConfigFile)) << "the other file of a target that failed";
}

TEST_F(AgentHookInstallerFilesTest, AFolderInAFilesPlaceFailsAndStays) {
  for (const char* file : {claudeFile, codexFile, grokFile, piFile}) {
    home.write(std::string(file) + "/inside", "precious");
  }
  for (const auto& [target, file] :
       {std::pair(AgentHookTarget::claude, claudeFile),
        std::pair(AgentHookTarget::codex, codexFile), std::pair(AgentHookTarget::grok, grokFile),
        std::pair(AgentHookTarget::pi, piFile)}) {
    expectReason(failureOf(target), file, std::strerror(EISDIR));
    EXPECT_EQ(home.read(std::string(file) + "/inside"), "precious");
  }
}

TEST_F(AgentHookInstallerFilesTest, AFolderInThePlaceOfCodexsConfigChangesNothing) {
  home.write(std::string(codexConfigFile) + "/inside", "precious");
  home.write(codexFile, "{}");
  const auto report = failureOf(AgentHookTarget::codex);
  EXPECT_EQ(report.path, (home / codexFile).string());
  expectReason(report, codexConfigFile, std::strerror(EISDIR));
  EXPECT_EQ(home.read(codexFile), "{}");
}

TEST_F(AgentHookInstallerFilesTest, AConfigThatOnlyAPersonCanEditChangesNothing) {
  home.write(codexConfigFile, "features = { web = true }\n");
  home.write(codexFile, "{}");
  expectReason(failureOf(AgentHookTarget::codex), codexConfigFile, "by hand");
  EXPECT_EQ(home.read(codexConfigFile), "features = { web = true }\n");
  EXPECT_EQ(home.read(codexFile), "{}");
  EXPECT_THROW(install(AgentHookTarget::codex), CodexConfigError);
}

TEST_F(AgentHookInstallerFilesTest, AFileInAFoldersPlaceFailsAndStays) {
  home.write(".grok", "precious");
  expectReason(failureOf(AgentHookTarget::grok), ".grok/hooks", std::strerror(ENOTDIR));
  EXPECT_EQ(home.read(".grok"), "precious");
  EXPECT_EQ(uninstall(AgentHookTarget::grok).message, "not installed");
}

TEST_F(AgentHookInstallerFilesTest, AFolderThatMayNotBeWrittenToFails) {
  install(AgentHookTarget::pi);
  for (const char* file : {claudeFile, codexFile, grokFile}) {
    home.write(file, "{}");
    fs::permissions((home / file).parent_path(), fs::perms(0555));
  }
  fs::permissions(home.path(), fs::perms(0755));
  for (const auto& [target, file] :
       {std::pair(AgentHookTarget::claude, claudeFile),
        std::pair(AgentHookTarget::codex, codexFile), std::pair(AgentHookTarget::grok, grokFile)}) {
    {
      const UnprivilegedUser user;
      expectReason(failureOf(target), file, std::strerror(EACCES));
    }
    EXPECT_EQ(home.read(file), "{}");
    fs::permissions((home / file).parent_path(), fs::perms(0755));
  }
  EXPECT_FALSE(exists(codexConfigFile));
}

TEST_F(AgentHookInstallerFilesTest, WhatIsInstalledAlreadyNeedsNoRightToWrite) {
  install();
  fs::permissions(home.path(), fs::perms(0755));
  fs::permissions(home / ".claude", fs::perms(0555));
  {
    const UnprivilegedUser user;
    EXPECT_EQ(install(AgentHookTarget::claude),
              report("claude", claudeFile, false, "already installed"));
  }
  fs::permissions(home / ".claude", fs::perms(0755));
}

TEST_F(AgentHookInstallerFilesTest, AFileThatMayNotBeReadFails) {
  install(AgentHookTarget::pi);
  home.write(claudeFile, "{}");
  fs::permissions(home / claudeFile, fs::perms(0));
  fs::permissions(home.path(), fs::perms(0755));
  {
    const UnprivilegedUser user;
    expectReason(failureOf(AgentHookTarget::claude), claudeFile, std::strerror(EACCES));
  }
  EXPECT_EQ(modeOf(claudeFile), 0U);
}

TEST_F(AgentHookInstallerFilesTest, AFullDiskFailsAndLeavesNothingBehind) {
  install(AgentHookTarget::pi);
  home.write(claudeFile, "{}");
  home.write(codexFile, "{}");
  {
    const DiskFull full;
    expectReason(failureOf(AgentHookTarget::claude), claudeFile, std::strerror(EFBIG));
    expectReason(failureOf(AgentHookTarget::codex), codexFile, std::strerror(EFBIG));
    expectReason(failureOf(AgentHookTarget::grok), grokFile, std::strerror(EFBIG));
  }
  EXPECT_EQ(home.read(claudeFile), "{}");
  EXPECT_EQ(home.read(codexFile), "{}");
  const auto count = [this](const char* folder) {
    return std::distance(fs::directory_iterator(home / folder), fs::directory_iterator());
  };
  EXPECT_EQ(count(".claude"), 1);
  EXPECT_EQ(count(".codex"), 1);
  EXPECT_EQ(count(".grok/hooks"), 0);
}

TEST_F(AgentHookInstallerFilesTest, AFullDiskFailsTheScriptAndWithItEveryTarget) {
  const DiskFull full;
  const auto reports = installer().installReportingFailures(all());
  ASSERT_EQ(reports.size(), 4U);
  for (const auto& report : reports) {
    EXPECT_THAT(report.error.value(),
                AllOf(StartsWith("shared hook script: "), HasSubstr(std::strerror(EFBIG))));
  }
  EXPECT_THAT(home.names(), ElementsAre(".nodo"));
}

TEST_F(AgentHookInstallerFilesTest, CodexsConfigKeepsItsLinesAndReturns) {
  home.write(codexConfigFile, "# mine\r\nmodel = \"x\"\r\n[features]\r\nweb = true # w\r\n");
  install(AgentHookTarget::codex);
  EXPECT_EQ(home.read(codexConfigFile),
            "# mine\r\nmodel = \"x\"\r\n[features]\r\nhooks = true\r\nweb = true # w\r\n");
}

TEST_F(AgentHookInstallerFilesTest, AHostilePathReachesTheShellAsOneWord) {
  const std::string name = "it's \"a\"\n$(touch canary) `touch canary` \\ ; touch canary #";
  const AgentHookInstaller hostile(home / name, std::nullopt, "x");
  hostile.install(all());
  EXPECT_TRUE(hostile.inspect(all()).isCurrent());
  const std::string script = name + "/.nodo/nodo-agent-hook.sh";
  home.write(script, "#!/bin/sh\nprintf '%s %s|' \"$NODO_HOOK_AGENT\" \"$NODO_HOOK_EVENT\"\n");
  const JSONValue settings = JSONValue::parse(home.read(name + "/.claude/settings.json"));
  for (const std::string_view event : hookEvents) {
    const JSONValue& group = settings.member("hooks")->member(event)->array()->at(0);
    const std::string& command = *group.member("hooks")->array()->at(0).member("command")->text();
    const auto output = ProcessCommandRunner().run("/bin/sh", {"-c", command});
    EXPECT_EQ(output.standardOutput, "claude " + std::string(event) + "|") << output.standardError;
  }
  EXPECT_FALSE(fs::exists("canary"));
  EXPECT_THAT(home.names(), ElementsAre(name));
}

}  // namespace
}  // namespace nodo
