#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/control/DaemonSettings.h>
#include <testing/TemporaryFolder.h>

#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace nodo {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

std::string allLines(const DaemonSettings& settings) {
  std::string text;
  for (const Setting& setting : allSettings()) {
    text += setting.line(settings) + "\n";
  }
  return text;
}

TEST(DaemonSettingsTest, AnEmptyFileSaysNothing) {
  for (const char* text : {"", "\n# nothing\n", "\xEF\xBB\xBF"}) {
    DaemonSettings settings;
    EXPECT_THAT(applySettings(text, settings), IsEmpty()) << text;
    EXPECT_EQ(settings, DaemonSettings()) << text;
  }
}

TEST(DaemonSettingsTest, EverySettingCanBeSet) {
  DaemonSettings settings;
  EXPECT_THAT(applySettings("minimum-battery = 0\n"
                            "max-minutes = 1\n"
                            "no-route-grace = 7\n"
                            "lid-open-grace = 0\n"
                            "release-grace = 0.25\n"
                            "thermal-pressure = false\n"
                            "low-power-mode = true\n"
                            "lock-on-lid-close = false\n"
                            "keep-display-on = true\n"
                            "long-tools = false\n",
                            settings),
              IsEmpty());
  DaemonSettings expected{.policy = defaultPolicy,
                          .releaseGrace = Seconds(0.25),
                          .lockOnLidClose = false,
                          .keepDisplayOn = true,
                          .longTools = false};
  expected.policy.minimumBatteryPercent = 0;
  expected.policy.maxManualDurationMinutes = 1;
  expected.policy.noRouteGraceSeconds = 7;
  expected.policy.lidOpenGraceSeconds = 0;
  expected.policy.stopAtThermalPressure = false;
  expected.policy.stopInLowPowerMode = true;
  EXPECT_EQ(settings, expected);

  DaemonSettings again;
  EXPECT_THAT(applySettings(allLines(settings), again), IsEmpty()) << "the lines are TOML";
  EXPECT_EQ(again, settings);
}

TEST(DaemonSettingsTest, NoTwoSettingsShareAPlace) {
  for (const Setting& one : allSettings()) {
    DaemonSettings settings;
    const std::string before = allLines(settings);
    if (one.isSwitch()) {
      const bool isOn = one.line(settings).ends_with("true");
      EXPECT_TRUE(one.set(settings, !isOn));
    } else {
      EXPECT_TRUE(one.set(settings, one.least + 2));
    }
    int changed = 0;
    for (const Setting& other : allSettings()) {
      changed += before.find(other.line(settings) + "\n") == std::string::npos ? 1 : 0;
    }
    EXPECT_EQ(changed, 1) << one.name;
  }
}

TEST(DaemonSettingsTest, WhatIsWrongIsNamedWithItsLineAndSpoilsNothingElse) {
  const std::vector<std::pair<std::string, std::string>> cases{
      {"minimum-batery = 5", "line 2: there is no setting \"minimum-batery\""},
      {"minimum-battery = 101", "line 2: minimum-battery must be a whole number from 0 to 100"},
      {"minimum-battery = -1", "line 2: minimum-battery must be a whole number from 0 to 100"},
      {"minimum-battery = 20.0", "line 2: minimum-battery must be a whole number from 0 to 100"},
      {"minimum-battery = \"20\"", "line 2: minimum-battery must be a whole number"},
      {"release-grace = nan", "line 2: release-grace must be a number of seconds from 0"},
      {"release-grace = inf", "line 2: release-grace must be a number of seconds"},
      {"release-grace = 2026-01-31", "line 2: release-grace must be a number of seconds"},
      {"long-tools = 1", "line 2: long-tools must be true or false"},
      {"long-tools = []", "line 2: long-tools must be true or false"},
      {"[daemon]\nlong-tools = false", "line 2: there is no setting \"daemon\""},
      {"\"a\\u001b[2Jb\" = 1", "line 2: there is no setting \"a\\u{1b}[2Jb\""},
  };
  for (const auto& [line, problem] : cases) {
    DaemonSettings settings;
    EXPECT_THAT(applySettings("max-minutes = 90\n" + line, settings),
                ElementsAre(StartsWith(problem)))
        << line;
    DaemonSettings expected;
    expected.policy.maxManualDurationMinutes = 90;
    EXPECT_EQ(settings, expected) << line;
  }
}

TEST(DaemonSettingsTest, OfATextThatIsNoTOMLNothingIsHeeded) {
  for (const char* text : {"max-minutes = 90\n= 5", "max-minutes = 90\nmax-minutes = 80",
                           "max-minutes = 90\n\xff = 1", "max-minutes = 90\na = \"open"}) {
    DaemonSettings settings;
    EXPECT_THAT(applySettings(text, settings),
                ElementsAre(HasSubstr("; nothing in this file is heeded")))
        << text;
    EXPECT_EQ(settings, DaemonSettings()) << text;
  }
}

TEST(DaemonSettingsTest, AFileThatIsNotThereIsAProblemOnlyWhereSomebodyNamedIt) {
  const test::TemporaryFolder folder;
  EXPECT_EQ(readSettings(folder / "none", false),
            (EffectiveSettings{.settings = {}, .file = (folder / "none").string()}));
  EXPECT_THAT(readSettings(folder / "none", true).problems,
              ElementsAre((folder / "none").string() + ": there is no such file"));
  EXPECT_THAT(readSettings(folder.path(), false).problems,
              ElementsAre(HasSubstr(folder.path().string())))
      << "a folder";
}

TEST(DaemonSettingsTest, EverybodyMayKnowThem) {
  const SettingsReport report(
      EffectiveSettings{.settings = {}, .file = "/etc/nodo/nodod.toml", .problems = {"a problem"}});
  EXPECT_EQ(report.policy, defaultPolicy);
  EXPECT_EQ(report.lines.size(), allSettings().size());
  EXPECT_EQ(report.lines.front(), "minimum-battery = 20");
  EXPECT_EQ(decodeJSON<SettingsReport>(encodeJSON(report, JSONLayout::compact)), report);
}

}  // namespace
}  // namespace nodo
