#include <tests/programs/nodoctl/ToolFixture.h>

namespace nodo::nodoctl {
namespace {

using Texts = std::vector<std::string>;

// What "nodoctl complete" tells the shells' scripts; tests/e2e/completion-in-shells tries those.
class CompletionTest : public ToolFixture {
 protected:
  // The lines for a command line behind "nodoctl" whose last word is being typed.
  Texts lines(Texts words) {
    words.insert(words.begin(), "complete");
    const Outcome outcome = run(words);
    EXPECT_EQ(outcome.exitStatus, 0);
    EXPECT_EQ(outcome.error, "");
    Texts lines;
    std::istringstream text(outcome.output);
    for (std::string line; std::getline(text, line);) {
      lines.push_back(line);
    }
    return lines;
  }

  // Those without their descriptions.
  Texts offered(Texts words) {
    Texts offered = lines(std::move(words));
    for (std::string& line : offered) {
      line.erase(std::min(line.find('\t'), line.size()));
    }
    return offered;
  }
};

TEST_F(CompletionTest, TheCommandsAreOffered) {
  const Texts all{"status", "history",     "manual",           "on",     "stop",
                  "off",    "pause",       "resume",           "repair", "reconcile",
                  "doctor", "diagnostics", "agents",           "hooks",  "menu",
                  "watch",  "run",         "completion",       "help",   "version",
                  "--help", "--version",   "--helper-timeout", "--bus"};
  EXPECT_EQ(offered({""}), all);
  EXPECT_EQ(offered({}), all);
  EXPECT_EQ(offered({"re"}), (Texts{"resume", "repair", "reconcile"}));
}

TEST_F(CompletionTest, EachCandidateHasItsDescription) {
  EXPECT_EQ(lines({"sto"}), (Texts{"stop\tEnd the timer, so that the computer may sleep"}));
  EXPECT_EQ(lines({"stop", "--j"}), (Texts{"--json\tPrint JSON"}));
  EXPECT_EQ(lines({"watch", "--j"}), (Texts{"--json\tPrint JSON, one document a line"}));
  EXPECT_EQ(lines({"hooks", "install", "g"}), (Texts{"grok\tGrok Build"}));
}

TEST_F(CompletionTest, EachCommandHasItsOwnOptions) {
  const Texts common{"--help", "--version"};
  const Texts daemon{"--helper-timeout", "--bus"};

  const struct {
    Texts command;
    Texts options;
  } cases[] = {{{"status"}, {"--json", "--helper-timeout", "--bus"}},
               {{"history"}, {"--since", "--json", "--helper-timeout", "--bus"}},
               {{"manual"},
                {"--minutes", "--until", "--extend-only", "--requester", "--context", "--event",
                 "--json", "--helper-timeout", "--bus"}},
               {{"on"},
                {"--minutes", "--until", "--extend-only", "--requester", "--context", "--event",
                 "--json", "--helper-timeout", "--bus"}},
               {{"stop"}, {"--json", "--helper-timeout", "--bus"}},
               {{"off"}, {"--json", "--helper-timeout", "--bus"}},
               {{"repair"}, {"--json", "--helper-timeout", "--bus"}},
               {{"reconcile"}, {"--simulate", "--json", "--helper-timeout", "--bus"}},
               {{"doctor"}, {"--verbose", "--json", "--helper-timeout", "--bus"}},
               {{"diagnostics"}, {"--json"}},
               {{"agents"}, {"--json"}},
               {{"hooks"}, {}},
               {{"hooks", "install"}, {"--home", "--nodoctl", "--json"}},
               {{"hooks", "uninstall"}, {"--home", "--nodoctl", "--json"}},
               {{"hooks", "inspect"}, {"--home", "--nodoctl", "--json"}},
               {{"menu"}, {"--json", "--helper-timeout", "--bus"}},
               {{"watch"}, {"--interval", "--json", "--helper-timeout", "--bus"}},
               {{"run"}, {"--minutes", "--keep", "--pid", "--helper-timeout", "--bus"}},
               {{"completion"}, {}}};

  for (const auto& each : cases) {
    Texts words = each.command;
    words.emplace_back("--");
    Texts expected = common;
    expected.insert(expected.end(), each.options.begin(), each.options.end());
    EXPECT_EQ(offered(words), expected) << ::testing::PrintToString(each.command);
  }
}

TEST_F(CompletionTest, OptionsInFrontOfTheCommandArePassedOver) {
  EXPECT_EQ(offered({"--bus", "session", "do"}), (Texts{"doctor"}));
  EXPECT_EQ(offered({"--bus=session", "do"}), (Texts{"doctor"}));
  EXPECT_EQ(offered({"--helper-timeout", "2", "doctor", "--v"}), (Texts{"--version", "--verbose"}));
  EXPECT_EQ(offered({"--bus", "status", "do"}), (Texts{"doctor"}));
}

TEST_F(CompletionTest, ValuesAreOfferedWhereTheyAreKnown) {
  const Texts buses{"system", "session"};
  EXPECT_EQ(offered({"--bus", ""}), buses);
  EXPECT_EQ(offered({"status", "--bus", ""}), buses);
  EXPECT_EQ(offered({"run", "--bus", "sy"}), (Texts{"system"}));
  EXPECT_EQ(offered({"--bus=se"}), (Texts{"--bus=session"}));
  EXPECT_EQ(offered({"completion", ""}), (Texts{"bash", "zsh", "fish", "--help", "--version"}));
  EXPECT_EQ(offered({"completion", "z"}), (Texts{"zsh"}));
  for (const char* option : {"--minutes", "--until", "--requester", "--context", "--event"}) {
    EXPECT_EQ(offered({"manual", option, ""}), Texts{}) << option;
  }
  EXPECT_EQ(offered({"--helper-timeout", ""}), Texts{});
  EXPECT_EQ(offered({"watch", "--interval=", ""}), (offered({"watch", ""})));
}

TEST_F(CompletionTest, FoldersAndFilesAreLeftToTheShell) {
  for (const char* command : {"install", "uninstall", "inspect"}) {
    EXPECT_EQ(offered({"hooks", command, "--home", ""}), (Texts{":folders"}));
    EXPECT_EQ(offered({"hooks", command, "--home=/us"}), (Texts{":folders"}));
    EXPECT_EQ(offered({"hooks", command, "pi", "--nodoctl", "/us"}), (Texts{":files"}));
  }
}

TEST_F(CompletionTest, AgentsAreOfferedAsOftenAsTheyMayBeNamed) {
  EXPECT_EQ(offered({"hooks", ""}),
            (Texts{"install", "uninstall", "inspect", "--help", "--version"}));
  EXPECT_EQ(offered({"hooks", "install", "c"}), (Texts{"claude", "codex"}));
  EXPECT_EQ(offered({"hooks", "install", "pi", "claude", "co"}), (Texts{"codex"}));
  EXPECT_EQ(offered({"hooks", "inspect", "pi", "--h"}), (Texts{"--help", "--home"}));
  EXPECT_EQ(offered({"hooks", "inspect", "--", "p"}), (Texts{"pi"}));
}

TEST_F(CompletionTest, HelpIsOfferedForEachCommand) {
  EXPECT_EQ(offered({"help", "re"}), (Texts{"resume", "repair", "reconcile"}));
  EXPECT_EQ(offered({"help", "hooks", ""}), (Texts{"install", "uninstall", "inspect"}));
  EXPECT_EQ(offered({"help", "hooks", "install", ""}), Texts{});
  EXPECT_EQ(offered({"help", "run", ""}), Texts{});
}

TEST_F(CompletionTest, BehindRunAnotherCommandLineBegins) {
  EXPECT_EQ(offered({"run", "--", ""}), (Texts{":command 2"}));
  EXPECT_EQ(offered({"run", "--", "--x"}), (Texts{":command 2"}));
  EXPECT_EQ(offered({"run", "--minutes", "5", "--", "ls", "--json", ""}), (Texts{":command 4"}));
  EXPECT_EQ(offered({"--bus", "x", "run", "ls", "--", "--bus"}), (Texts{":command 3"}));
  EXPECT_EQ(offered({"run", "l"}), (Texts{":command 1"}));
  EXPECT_EQ(offered({"run", "--m"}), (Texts{"--minutes"}));
  EXPECT_EQ(offered({"run", ""}), (Texts{":command 1", "--help", "--version", "--minutes", "--keep",
                                         "--pid", "--helper-timeout", "--bus"}));
  EXPECT_EQ(offered({"run", "--pid", ""}), Texts{});
}

TEST_F(CompletionTest, ALineThatMakesNoSenseGoesOnInNoWay) {
  for (const Texts& words :
       {Texts{"sleep", ""}, Texts{"status", "x", ""}, Texts{"status", "--", ""},
        Texts{"completion", "zsh", "b"}, Texts{"completion", "--", "-"}, Texts{"--", "st"},
        Texts{"hooks", "remove", ""}, Texts{"--=", "--="}, Texts{"--nothing="},
        Texts{"status", "--json=x"}, Texts{"\x1b[2J", "\xff\n"}, Texts{"complete", ""},
        Texts{"help", "--"}, Texts{"help", "status", ""}, Texts{"help", "nothing", ""},
        Texts{std::string(100'000, 'x')}}) {
    EXPECT_EQ(lines(words), Texts{}) << ::testing::PrintToString(words);
  }
}

TEST_F(CompletionTest, WordsBehindItAreNeverOptionsOfItsOwn) {
  EXPECT_EQ(offered({"--help"}), (Texts{"--help", "--helper-timeout"}));
  EXPECT_EQ(offered({"--nonsense", "--version"}), (Texts{"--version"}));
}

TEST_F(CompletionTest, NothingTellsOfTheCommandThatTheScriptsAsk) {
  EXPECT_EQ(offered({"comp"}), (Texts{"completion"}));
  EXPECT_EQ(run({"--help"}).output.find("complete"), std::string::npos);
}

}  // namespace
}  // namespace nodo::nodoctl
