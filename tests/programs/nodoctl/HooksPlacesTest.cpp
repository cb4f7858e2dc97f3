#include <NODOCore/hooks/HookScript.h>

#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include <tests/programs/nodoctl/HooksFixture.h>

namespace nodo::nodoctl {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;

// Whose home is meant, and which nodoctl the hooks run.
using HooksPlacesTest = HooksFixture;

TEST_F(HooksPlacesTest, TheHomeFolderIsHOMEUnlessItIsNamed) {
  fs::create_directory(folder / "other");
  run({"hooks", "install", "pi", "--home", (folder / "other").string()});
  EXPECT_TRUE(fs::exists(folder / "other/.pi/agent/extensions/nodo.ts"));
  EXPECT_TRUE(fs::is_empty(home));

  environment.erase("HOME");
  for (const char* value : {"unset", ""}) {
    const Outcome outcome = run({"hooks", "inspect"});
    EXPECT_EQ(outcome.exitStatus, 1) << value;
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.error,
              "nodoctl: HOME is not set, so it is not known where the agents' configuration lies; "
              "use --home DIR\n");
    environment["HOME"] = "";
  }
  EXPECT_EQ(run({"hooks", "inspect", "--home", home.string()}).exitStatus, 0);
  EXPECT_EQ(run({"hooks", "install", "--home", ""}).exitStatus, 1);
}

TEST_F(HooksPlacesTest, AFolderWrittenOtherwiseIsTheSameFolder) {
  run({"hooks", "install"});
  const std::string relative = fs::relative(folder.path()).string();
  for (const std::string& written :
       {home.string() + "/", home.string() + "//.", (folder / "." / "home").string()}) {
    EXPECT_TRUE(inspect({"--home", written}).isCurrent()) << written;
  }
  ASSERT_EQ(relative.front(), '.');  // "..", which may mean another folder behind a link
  EXPECT_TRUE(fs::path(inspect({"--home", relative + "/home"}).hookScriptPath).is_absolute());
}

TEST_F(HooksPlacesTest, AHomeFromWhereThePersonStandsIsWrittenAbsolute) {
  const std::string relative = (fs::relative(folder.path()) / "home").string();
  const Outcome outcome = run({"hooks", "install", "--home", relative, "--json"});
  for (const auto& report : decodeJSON<std::vector<AgentHookInstallReport>>(outcome.output)) {
    EXPECT_TRUE(fs::path(report.path).is_absolute()) << report.path;
  }
  const std::string asWritten = "..";
  for (const char* file : {".claude/settings.json", ".codex/hooks.json", ".grok/hooks/nodo.json",
                           ".pi/agent/extensions/nodo.ts"}) {
    const std::string text = folder.read(std::string("home/") + file);
    EXPECT_THAT(text, HasSubstr("/.nodo/nodo-agent-hook.sh")) << file;
    EXPECT_THAT(text, Not(HasSubstr("'" + asWritten))) << file;
    EXPECT_THAT(text, Not(HasSubstr("\"" + asWritten))) << file;
  }
  EXPECT_THAT(outcome.output + outcome.error, Not(HasSubstr("\"" + asWritten)));
}

TEST_F(HooksPlacesTest, TheHooksRunThisToolByItsPlaceInPATH) {
  run({"hooks", "install", "pi"});
  EXPECT_THAT(script(), HasSubstr("'" + (folder / "bin/nodoctl").string() + "'"));
}

TEST_F(HooksPlacesTest, ALinkToThisToolIsNotResolved) {
  fs::create_directory(folder / "links");
  fs::create_symlink(folder / "bin/nodoctl", folder / "links/nodoctl");
  environment["PATH"] = (folder / "links").string();
  run({"hooks", "install", "pi"});
  EXPECT_THAT(script(), HasSubstr("'" + (folder / "links/nodoctl").string() + "'"));

  startedAs = (folder / "links" / "." / "nodoctl").string();
  environment.erase("PATH");
  EXPECT_TRUE(inspect({"pi"}).isCurrent());
}

TEST_F(HooksPlacesTest, WhatIsNoProgramIsPassedOverInPATH) {
  folder.write("a/nodoctl", "not executable");
  fs::create_directories(folder / "b/nodoctl");
  environment["PATH"] =
      (folder / "a").string() + ":" + (folder / "b").string() + ":" + environment["PATH"];
  run({"hooks", "install", "pi"});
  EXPECT_THAT(script(), HasSubstr("'" + (folder / "bin/nodoctl").string() + "'"));
}

TEST_F(HooksPlacesTest, ARelativePathOfThisToolIsMadeAbsolute) {
  startedAs = "./bin/nodoctl";
  const std::string expected = (fs::current_path() / "bin/nodoctl").string();
  run({"hooks", "install", "pi"});
  EXPECT_THAT(script(), HasSubstr("'" + expected + "'"));

  startedAs = "../bin/nodoctl";
  run({"hooks", "install", "pi"});
  EXPECT_THAT(script(), HasSubstr("'" + (fs::current_path() / "../bin/nodoctl").string() + "'"));
}

TEST_F(HooksPlacesTest, AnotherToolCanBeNamed) {
  const std::string named = (folder / "bin/nodoctl").string();
  startedAs = "/elsewhere/nodoctl";
  const Outcome outcome = run({"hooks", "install", "pi", "--nodoctl", named});
  EXPECT_EQ(outcome.error, "");
  EXPECT_EQ(script(), hookScriptText(named));
  EXPECT_TRUE(inspect({"pi", "--nodoctl", named}).isCurrent());
  EXPECT_TRUE(inspect({"pi"}).needsUpdate());

  run({"hooks", "install", "pi", "--nodoctl", "relative/nodoctl"});
  EXPECT_EQ(script(), hookScriptText((fs::current_path() / "relative/nodoctl").string()));
  EXPECT_EQ(run({"hooks", "install", "pi", "--nodoctl", ""}).error, "");
  EXPECT_EQ(script(), hookScriptText(""));
}

TEST_F(HooksPlacesTest, AToolThatCannotBeRunIsWarnedOf) {
  const Outcome outcome = run({"hooks", "install", "pi", "--nodoctl", "/nowhere/nodoctl"});
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_EQ(
      outcome.error,
      "nodoctl: /nowhere/nodoctl is no program that can be run, so the hooks cannot run it; name "
      "another with --nodoctl PATH\n");
}

TEST_F(HooksPlacesTest, WhereThisToolLiesMustBeKnown) {
  environment["PATH"] = "/nowhere";
  for (const char* command : {"install", "inspect"}) {
    const Outcome outcome = run({"hooks", command});
    EXPECT_EQ(outcome.exitStatus, 1);
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.error,
              "nodoctl: it is not known where this nodoctl lies, as it was started as \"nodoctl\"; "
              "use --nodoctl PATH\n");
  }
  EXPECT_TRUE(fs::is_empty(home));
  EXPECT_EQ(run({"hooks", "uninstall"}).exitStatus, 0);
}

TEST_F(HooksPlacesTest, ControlCharactersOfAPathAreShownEscaped) {
  fs::create_directory(folder / "a\x1b[31mb");
  const Outcome outcome =
      run({"hooks", "inspect", "pi", "--home", (folder / "a\x1b[31mb").string()});
  EXPECT_THAT(outcome.output, HasSubstr("a\\u{1b}[31mb"));
  EXPECT_THAT(outcome.output, Not(HasSubstr("\x1b")));
}

}  // namespace
}  // namespace nodo::nodoctl
