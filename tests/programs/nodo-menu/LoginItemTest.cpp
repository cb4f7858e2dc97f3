#include <programs/nodo-menu/LoginItem.h>
#include <testing/TemporaryFolder.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <system_error>

#include <gmock/gmock.h>

namespace nodo::menu {
namespace {

namespace fs = std::filesystem;

using ::testing::EndsWith;
using ::testing::HasSubstr;

class LoginItemTest : public ::testing::Test {
 protected:
  LoginItem item(LoginItem::Kind kind, const fs::path& program = "/usr/bin/nodo-menu") const {
    return {kind, environment(), program};
  }

  Environment environment() const { return {{"HOME", folder.path().string()}}; }

  static std::string contentOf(const LoginItem& item) {
    std::ifstream file(item.path());
    return {std::istreambuf_iterator<char>(file), {}};
  }

  static void append(const LoginItem& item, const std::string& line) {
    std::ofstream(item.path(), std::ios::app) << line << "\n";
  }

  test::TemporaryFolder folder;
};

TEST_F(LoginItemTest, ItIsOffUntilItIsTurnedOnAndGoneOnceItIsTurnedOff) {
  for (const auto kind : {LoginItem::Kind::xdgAutostart, LoginItem::Kind::launchAgent}) {
    const LoginItem it = item(kind);
    EXPECT_FALSE(it.isOn());
    it.turn(true);
    EXPECT_TRUE(it.isOn());
    it.turn(true);
    EXPECT_TRUE(it.isOn());
    it.turn(false);
    EXPECT_FALSE(it.isOn());
    EXPECT_FALSE(fs::exists(it.path()));
    it.turn(false);
    EXPECT_FALSE(it.isOn());
  }
}

TEST_F(LoginItemTest, ADesktopFindsItInTheUsersConfiguration) {
  const LoginItem it = item(LoginItem::Kind::xdgAutostart);
  EXPECT_EQ(it.path(), folder / ".config/autostart/com.quintavel.nodo.menu.desktop");
  it.turn(true);
  EXPECT_THAT(contentOf(it), HasSubstr("\nExec=\"/usr/bin/nodo-menu\"\n"));
}

TEST_F(LoginItemTest, TheFolderOfConfigurationsIsWhereItsVariableSaysIfThatIsAbsolute) {
  Environment chosen = environment();
  chosen["XDG_CONFIG_HOME"] = (folder / "own").string();
  EXPECT_EQ(LoginItem(LoginItem::Kind::xdgAutostart, chosen, "/m").path().parent_path(),
            folder / "own/autostart");
  chosen["XDG_CONFIG_HOME"] = "own";
  EXPECT_EQ(LoginItem(LoginItem::Kind::xdgAutostart, chosen, "/m").path().parent_path(),
            folder / ".config/autostart");
}

TEST_F(LoginItemTest, WhatTheDesktopsSettingsSwitchedOffIsOffAndCanBeTurnedOnAgain) {
  const LoginItem it = item(LoginItem::Kind::xdgAutostart);
  for (const char* line : {"Hidden=true", "X-GNOME-Autostart-enabled=false"}) {
    it.turn(true);
    append(it, line);
    EXPECT_FALSE(it.isOn()) << line;
    it.turn(true);
    EXPECT_TRUE(it.isOn()) << line;
  }
}

TEST_F(LoginItemTest, AProgramsPathIsQuotedAsDesktopEntriesWantIt) {
  const LoginItem it = item(LoginItem::Kind::xdgAutostart, "/a b/100%/$x/\"q\"/back\\slash");
  it.turn(true);
  EXPECT_THAT(contentOf(it), HasSubstr(R"(Exec="/a b/100%%/\\$x/\\"q\\"/back\\\\slash")"));
}

TEST_F(LoginItemTest, LaunchdStartsItInTheSessionOfTheUser) {
  const LoginItem it = item(LoginItem::Kind::launchAgent, "/A&B/<nodo-menu>");
  it.turn(true);
  EXPECT_EQ(it.path(), folder / "Library/LaunchAgents/com.quintavel.nodo.menu.plist");
  EXPECT_THAT(contentOf(it), HasSubstr("<string>/A&amp;B/&lt;nodo-menu&gt;</string>"));
  EXPECT_THAT(contentOf(it), HasSubstr("<key>RunAtLoad</key>\n\t<true/>"));
  EXPECT_THAT(contentOf(it), EndsWith("</plist>\n"));
}

TEST_F(LoginItemTest, WithoutAHomeItSaysSo) {
  EXPECT_THROW(LoginItem(LoginItem::Kind::launchAgent, {}, "/m"), std::runtime_error);
}

TEST_F(LoginItemTest, WhatCannotBeWrittenIsAnErrorWithItsPath) {
  const LoginItem it = item(LoginItem::Kind::launchAgent);
  std::ofstream(folder / "Library") << "no folder";
  try {
    it.turn(true);
    FAIL();
  } catch (const std::system_error& error) {
    EXPECT_THAT(error.what(), HasSubstr("Library"));
  }
}

}  // namespace
}  // namespace nodo::menu
