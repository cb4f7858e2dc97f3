#include <programs/shared/Help.h>

#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <gtest/gtest.h>

namespace nodo {
namespace {

std::vector<std::string> words(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) {
    words.push_back(word);
  }
  return words;
}

class HelpTest : public ::testing::Test {
 protected:
  HelpTest() {
    command.set_help_flag("-h,--help", "Show this help and exit");
    command
        .add_option("--minutes", minutes, "How long the computer is to be kept awake from now on")
        ->type_name("N")
        ->required();
    command.add_option("file", file, "What to read")->type_name("FILE");
    command.add_subcommand("later", "Do it at another time");
    command.footer("One line.\nAnother line.");
  }

  CLI::App command{"Do something that takes many words to describe to who reads it", "do"};
  int minutes = 0;
  std::string file;
};

TEST_F(HelpTest, WhereThereIsRoomMeaningsStandBesideTheirNames) {
  EXPECT_EQ(helpText(command, "tool do", 72),
            "Do something that takes many words to describe to who reads it\n"
            "Usage: tool do [OPTIONS] [FILE] SUBCOMMAND\n"
            "\n"
            "Arguments:\n"
            "  FILE                        What to read\n"
            "\n"
            "Options:\n"
            "  -h,--help                   Show this help and exit\n"
            "  --minutes N                 How long the computer is to be kept awake\n"
            "                              from now on (required)\n"
            "\n"
            "Subcommands:\n"
            "  later                       Do it at another time\n"
            "\n"
            "One line.\n"
            "Another line.\n");
}

TEST_F(HelpTest, InANarrowTerminalMeaningsStandBelowTheirNames) {
  EXPECT_EQ(helpText(command, "tool do", 40),
            "Do something that takes many words to\n"
            "describe to who reads it\n"
            "Usage: tool do [OPTIONS] [FILE]\n"
            "  SUBCOMMAND\n"
            "\n"
            "Arguments:\n"
            "  FILE\n"
            "      What to read\n"
            "\n"
            "Options:\n"
            "  -h,--help\n"
            "      Show this help and exit\n"
            "  --minutes N\n"
            "      How long the computer is to be\n"
            "      kept awake from now on (required)\n"
            "\n"
            "Subcommands:\n"
            "  later\n"
            "      Do it at another time\n"
            "\n"
            "One line.\n"
            "Another line.\n");
}

TEST_F(HelpTest, NoWordIsBrokenAndNoneIsLost) {
  const std::string longWord(60, 'x');
  command.description("Before " + longWord + " after");
  const auto expected = words(helpText(command, "do", 1000));
  for (int columns = 40; columns <= 100; ++columns) {
    const std::string help = helpText(command, "do", columns);
    EXPECT_EQ(words(help), expected) << columns;
    std::istringstream lines(help);
    for (std::string line; std::getline(lines, line);) {
      EXPECT_TRUE(static_cast<int>(line.size()) <= columns || words(line).size() == 1) << line;
      EXPECT_FALSE(line.ends_with(' ')) << line;
    }
  }
}

TEST(HelpColumnsTest, COLUMNSCountsMoreThanTheTerminalWithinLimits) {
  const struct {
    Environment environment;
    std::optional<int> terminal;
    int columns;
  } cases[] = {{{}, std::nullopt, 80},
               {{}, 72, 72},
               {{}, 20, 40},
               {{}, 300, 100},
               {{{"COLUMNS", "60"}}, 72, 60},
               {{{"COLUMNS", "60"}}, std::nullopt, 60},
               {{{"COLUMNS", "1"}}, 72, 40},
               {{{"COLUMNS", "9999"}}, 72, 100},
               {{{"COLUMNS", ""}}, 72, 72},
               {{{"COLUMNS", "0"}}, 72, 72},
               {{{"COLUMNS", "-60"}}, 72, 72},
               {{{"COLUMNS", "wide"}}, 72, 72},
               {{{"COLUMNS", "99999999999"}}, std::nullopt, 80}};

  for (const auto& each : cases) {
    EXPECT_EQ(helpColumns(each.environment, each.terminal), each.columns)
        << ::testing::PrintToString(each.environment);
  }
}

}  // namespace
}  // namespace nodo
