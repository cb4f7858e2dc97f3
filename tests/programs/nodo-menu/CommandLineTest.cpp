#include <programs/nodo-menu/CommandLine.h>

#include <gmock/gmock.h>

namespace nodo::menu {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

TEST(MenuCommandLineTest, WithoutArgumentsOnlyTheIconIsShown) {
  const auto options = std::get<Options>(parseCommandLine({}));
  EXPECT_FALSE(options.showsWindow);
  EXPECT_EQ(options.daemon.bus, std::nullopt);
}

TEST(MenuCommandLineTest, TheWindowAndTheBusCanBeChosen) {
  const auto options = std::get<Options>(parseCommandLine({"--window", "--bus", "session"}));
  EXPECT_TRUE(options.showsWindow);
  EXPECT_EQ(options.daemon.bus, "session");
}

TEST(MenuCommandLineTest, HelpNamesEveryOptionAndTheVersionItsProgram) {
  const auto help = std::get<HelpText>(parseCommandLine({"--help"})).text;
  EXPECT_THAT(help, HasSubstr("--window"));
  EXPECT_THAT(help, HasSubstr("--bus"));
  EXPECT_THAT(std::get<HelpText>(parseCommandLine({"--version"})).text, StartsWith("nodo-menu "));
}

TEST(MenuCommandLineTest, AWrongUseIsToldOfWithoutControlCharacters) {
  EXPECT_THAT(std::get<UsageError>(parseCommandLine({"--bus", "nonsense"})).message,
              HasSubstr("--bus"));
  EXPECT_THAT(std::get<UsageError>(parseCommandLine({"a\033[2J"})).message,
              ::testing::Not(HasSubstr("\033")));
}

}  // namespace
}  // namespace nodo::menu
