#include <NODOCore/hooks/HookScript.h>

#include <filesystem>

#include <tests/hooks/HookScriptFixture.h>

namespace nodo::test {
namespace {

namespace fs = std::filesystem;

// The application of the whole machine is not looked at here, as its path is absolute: that takes a
// file system of its own.
class HookScriptCandidateTest : public HookScriptFixture {
 protected:
  void SetUp() override {
    if (fs::exists("/Applications/nodo.app")) {
      GTEST_SKIP() << "nodo is installed on this machine";
    }
    unset("NODOCTL_PATH");
    useScript(hookScriptText(configured));
  }

  // Lets the script ask a stand-in for the property list's version: the one thing in it that is
  // exchanged.
  void usePlistBuddy() {
    const std::string tool = "/usr/libexec/PlistBuddy";
    std::string text = hookScriptText(configured);
    const auto at = text.find(tool);
    ASSERT_NE(at, std::string::npos);
    ASSERT_EQ(text.find(tool, at + 1), std::string::npos);
    useScript(text.replace(at, tool.size(), std::string(NODO_HOOK_STAND_INS) + "/PlistBuddy"));
  }

  void installApplication(const std::string& bundle, const std::optional<std::string>& version) {
    fs::remove_all(folder() / bundle);
    installNodoctl(bundle + "/Contents/Library/Helpers/nodoctl");
    if (version) {
      folder().write(bundle + "/Contents/Info.plist", *version);
    }
  }

  // The nodoctl that the script takes; empty when it finds none.
  std::string chosen() {
    fs::remove(folder() / "stamp");
    fs::remove(folder() / "calls");
    run();
    return calls().empty() ? "" : calls().front().substr(0, calls().front().find(" <"));
  }

  const std::string configured = path("it's here/other.app/Contents/Library/Helpers/nodoctl");
  const std::string other = "it's here/other.app";
  const std::string otherTool = other + "/Contents/Library/Helpers/nodoctl";
  const std::string home = "home/Applications/nodo.app";
  const std::string homeTool = home + "/Contents/Library/Helpers/nodoctl";
};

TEST_F(HookScriptCandidateTest, OneThatIsNotExecutableIsNone) {
  EXPECT_EQ(chosen(), "");
  folder().write(otherTool, "#!/bin/sh\n");
  EXPECT_EQ(chosen(), "");
  fs::create_directories(folder() / homeTool);
  EXPECT_EQ(chosen(), "");
  EXPECT_EQ(log().front(), "nodoctl not found");
}

TEST_F(HookScriptCandidateTest, OneWithoutAPropertyListBeatsNothing) {
  installApplication(other, std::nullopt);
  EXPECT_EQ(chosen(), otherTool);
}

TEST_F(HookScriptCandidateTest, TheEarlierOfEqualVersionsWins) {
  installApplication(other, std::nullopt);
  installApplication(home, std::nullopt);
  EXPECT_EQ(chosen(), homeTool);
  usePlistBuddy();
  installApplication(other, "12\n");
  installApplication(home, "012\n");
  EXPECT_EQ(chosen(), homeTool);
}

TEST_F(HookScriptCandidateTest, TheHighestVersionWins) {
  usePlistBuddy();

  struct Versions {
    std::optional<std::string> home;
    std::optional<std::string> other;
    bool isHomeChosen;
  };

  for (const Versions& versions : std::vector<Versions>{
           {"1", "2", false},
           {"10", "9", true},
           {"9", "10", false},
           {"08", "9", false},
           {std::nullopt, "1", false},
           {"0", std::nullopt, true},
           {"1.5", "1", false},
           {"2 beta", "1", false},
           {"-3", "1", false},
           {"", "1", false},
           {"a[$(touch canary)]", "1", false},
           {"2\n3", "1", false},
           {"1\n", "2\n", false},
           {"99999999999999999999999", "100000000000000000000000", false},
           {"18446744073709551617", "2", true},
       }) {
    installApplication(home, versions.home);
    installApplication(other, versions.other);
    EXPECT_EQ(chosen(), versions.isHomeChosen ? homeTool : otherTool)
        << versions.home.value_or("none") << " and " << versions.other.value_or("none");
  }
  EXPECT_FALSE(fs::exists(folder() / "home/project/canary"));
}

TEST_F(HookScriptCandidateTest, WithoutPlistBuddyEveryVersionIsZero) {
  if (fs::exists("/usr/libexec/PlistBuddy")) {
    GTEST_SKIP() << "this machine has a PlistBuddy";
  }
  installApplication(home, "1");
  installApplication(other, "2");
  EXPECT_EQ(chosen(), homeTool);
}

TEST_F(HookScriptCandidateTest, ANodoctlOfTheEnvironmentIsAlwaysTaken) {
  installApplication(home, std::nullopt);
  installNodoctl("mine");
  set("NODOCTL_PATH", path("mine"));
  EXPECT_EQ(chosen(), "mine");
  for (const std::string& useless :
       {std::string(), path("missing"), path("payload"), path("home")}) {
    set("NODOCTL_PATH", useless);
    EXPECT_EQ(chosen(), homeTool) << useless;
  }
}

TEST_F(HookScriptCandidateTest, AFolderIsResolvedFromWhereTheScriptRuns) {
  usePlistBuddy();
  set("CDPATH", path(""));
  installApplication(home, "1");
  installApplication(other, "2");
  EXPECT_EQ(chosen(), otherTool);
}

}  // namespace
}  // namespace nodo::test
