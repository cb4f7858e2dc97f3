#include <NODOCore/base/Text.h>
#include <NODOCore/power/CommandRunning.h>
#include <programs/nodoctl/Completion.h>
#include <testing/TemporaryFolder.h>

#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace nodo::nodoctl {
namespace {

// What bash offers for a command line whose last word is being typed.
std::vector<std::string> completedByBash(const std::vector<std::string>& words) {
  const test::TemporaryFolder folder;
  folder.write("nodoctl.bash", completionScript("bash"));
  const std::string driver =
      "source \"$1\"; shift; COMP_WORDS=(\"$@\"); COMP_CWORD=$(($# - 1)); _nodoctl; "
      "printf '%s\\n' \"${COMPREPLY[@]}\"";
  std::vector<std::string> arguments{"-u", "-c", driver, "bash",
                                     (folder / "nodoctl.bash").string()};
  arguments.insert(arguments.end(), words.begin(), words.end());
  const CommandOutput output = ProcessCommandRunner().run("/bin/bash", arguments);
  EXPECT_EQ(output.exitCode, 0) << output.standardError;
  EXPECT_EQ(output.standardError, "");
  std::vector<std::string> offered;
  for (const std::string_view line : splitAtLineFeeds(output.standardOutput)) {
    offered.emplace_back(line);
  }
  return offered;
}

using Words = std::vector<std::string>;

TEST(CompletionTest, BashOffersTheCommands) {
  EXPECT_EQ(completedByBash({"nodoctl", ""}),
            (Words{"status", "manual", "stop", "repair", "reconcile", "doctor", "diagnostics",
                   "agents", "hooks", "menu", "watch", "run", "completion", "--help", "--version",
                   "--helper-timeout", "--bus"}));
  EXPECT_EQ(completedByBash({"nodoctl", "re"}), (Words{"repair", "reconcile"}));
}

TEST(CompletionTest, BashPassesOverOptionsInFrontOfTheCommand) {
  EXPECT_EQ(completedByBash({"nodoctl", "--bus", "session", "do"}), (Words{"doctor"}));
  EXPECT_EQ(completedByBash({"nodoctl", "--bus", ""}), (Words{}));
  EXPECT_EQ(completedByBash({"nodoctl", "--helper-timeout", "2", "doctor", "--v"}),
            (Words{"--version", "--verbose"}));
}

TEST(CompletionTest, BashOffersProgramsWhereOneIsToBeRun) {
  EXPECT_EQ(completedByBash({"nodoctl", "run", "--m"}), (Words{"--minutes"}));
  for (const Words& words :
       {Words{"nodoctl", "run", "--", "mkfif"},
        Words{"nodoctl", "--bus", "x", "run", "--minutes", "5", "--", "mkfif"}}) {
    EXPECT_THAT(completedByBash(words), ::testing::Contains("mkfifo"));
  }
}

TEST(CompletionTest, BashOffersFilesToTheProgramThatIsRun) {
  const test::TemporaryFolder folder;
  folder.write("only", "");
  const std::string beginning = (folder / "on").string();
  const Words found{(folder / "only").string()};
  EXPECT_EQ(completedByBash({"nodoctl", "run", "--", "cat", beginning}), found);
  EXPECT_EQ(completedByBash({"nodoctl", "run", "--", "x", "--bus", beginning}), found);
}

TEST(CompletionTest, FishOffersProgramsWhereOneIsToBeRun) {
  if (!std::filesystem::exists("/usr/bin/fish")) {
    GTEST_SKIP() << "fish is not installed";
  }
  const test::TemporaryFolder folder;
  folder.write("nodoctl.fish", completionScript("fish"));
  const CommandOutput output = ProcessCommandRunner().run(
      "/usr/bin/fish", {"--no-config", "-c",
                        "source $argv[1]; complete -C 'nodoctl run --minutes 5 -- mkfif'; "
                        "complete -C 'nodoctl ru'",
                        (folder / "nodoctl.fish").string()});
  EXPECT_THAT(output.standardOutput, ::testing::HasSubstr("mkfifo"));
  EXPECT_THAT(output.standardOutput, ::testing::HasSubstr("run\t"));
}

TEST(CompletionTest, BashOffersACommandsOwnOptions) {
  EXPECT_EQ(completedByBash({"nodoctl", "manual", "--e"}), (Words{"--extend-only", "--event"}));
  EXPECT_EQ(completedByBash({"nodoctl", "stop", "--j"}), (Words{"--json"}));
  EXPECT_EQ(completedByBash({"nodoctl", "stop", "--m"}), (Words{}));
}

TEST(CompletionTest, BashOffersNothingInPlaceOfAValue) {
  EXPECT_EQ(completedByBash({"nodoctl", "manual", "--minutes", ""}), (Words{}));
}

TEST(CompletionTest, BashOffersAnArgumentsChoices) {
  EXPECT_EQ(completedByBash({"nodoctl", "completion", "z"}), (Words{"zsh"}));
  EXPECT_EQ(completedByBash({"nodoctl", "completion", ""}),
            (Words{"--help", "--version", "bash", "zsh", "fish"}));
}

TEST(CompletionTest, BashOffersTheCommandsBehindACommand) {
  EXPECT_EQ(completedByBash({"nodoctl", "hooks", ""}),
            (Words{"install", "uninstall", "inspect", "--help", "--version"}));
  EXPECT_EQ(completedByBash({"nodoctl", "hooks", "install", "c"}), (Words{"claude", "codex"}));
  EXPECT_EQ(completedByBash({"nodoctl", "hooks", "inspect", "pi", "--h"}),
            (Words{"--help", "--home"}));
  EXPECT_EQ(completedByBash({"nodoctl", "hooks", "install", "--home", ""}), (Words{}));
}

TEST(CompletionTest, TheOtherShellsAcceptTheirScripts) {
  for (const std::string shell : {"zsh", "fish"}) {
    const std::string program = "/usr/bin/" + shell;
    if (!std::filesystem::exists(program)) {
      GTEST_SKIP() << shell << " is not installed";
    }
    const test::TemporaryFolder folder;
    folder.write("script", completionScript(shell));
    const CommandOutput output =
        ProcessCommandRunner().run(program, {"-n", (folder / "script").string()});
    EXPECT_EQ(output.exitCode, 0) << output.standardError;
    EXPECT_EQ(output.standardError, "");
  }
}

TEST(CompletionTest, EveryShellLearnsOfEveryOption) {
  for (const char* shell : {"bash", "zsh", "fish"}) {
    const std::string script = completionScript(shell);
    for (const char* word : {"extend-only", "simulate", "json", "requester", "diagnostics", "hooks",
                             "uninstall", "grok", "nodoctl", "doctor", "verbose", "menu", "watch",
                             "interval", "run", "bus", "helper-timeout"}) {
      EXPECT_NE(script.find(word), std::string::npos) << shell << " " << word;
    }
  }
}

}  // namespace
}  // namespace nodo::nodoctl
