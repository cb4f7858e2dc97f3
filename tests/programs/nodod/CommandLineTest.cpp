#include <programs/nodod/CommandLine.h>

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace nodo::nodod {
namespace {

using ::testing::HasSubstr;

Options parsed(const std::vector<std::string>& arguments) {
  const ParsedCommandLine result = parseCommandLine(arguments);
  const auto* usage = std::get_if<UsageError>(&result);
  EXPECT_EQ(usage, nullptr) << usage->message;
  return std::get<Options>(result);
}

DaemonSettings settingsOf(const Options& options) {
  DaemonSettings settings;
  for (const ChosenSetting& chosen : options.chosen) {
    EXPECT_TRUE(chosen.setting->set(settings, chosen.value));
  }
  return settings;
}

TEST(NododCommandLineTest, NothingOnTheLineMeansTheDefaults) {
  const Options options = parsed({});
  EXPECT_FALSE(options.stateFolder);
  EXPECT_FALSE(options.bus);
  EXPECT_EQ(options.power, PowerChoice::automatic);
  EXPECT_EQ(settingsOf(options).policy, (SafetyPolicy{.minimumBatteryPercent = 20,
                                                      .maxManualDurationMinutes = 720,
                                                      .lidOpenGraceSeconds = 60,
                                                      .noRouteGraceSeconds = 300,
                                                      .stopAtThermalPressure = true}));
  EXPECT_EQ(settingsOf(options).releaseGrace, Seconds(1));
  EXPECT_FALSE(options.log);
  EXPECT_FALSE(options.once);
}

TEST(NododCommandLineTest, EveryOptionIsTaken) {
  const Options options =
      parsed({"--state-dir", "/state", "--bus", "session", "--power", "logind", "--minimum-battery",
              "0", "--max-minutes", "1", "--lid-open-grace=0", "--no-route-grace", "7",
              "--release-grace", "0.25", "--log", "/log", "--once"});
  EXPECT_EQ(options.stateFolder, "/state");
  EXPECT_EQ(options.bus, "session");
  EXPECT_EQ(options.power, PowerChoice::logind);
  EXPECT_EQ(settingsOf(options).policy, (SafetyPolicy{.minimumBatteryPercent = 0,
                                                      .maxManualDurationMinutes = 1,
                                                      .lidOpenGraceSeconds = 0,
                                                      .noRouteGraceSeconds = 7,
                                                      .stopAtThermalPressure = true}));
  EXPECT_EQ(settingsOf(options).releaseGrace, Seconds(0.25));
  EXPECT_EQ(options.log, "/log");
  EXPECT_TRUE(options.once);
}

TEST(NododCommandLineTest, EachSettingIsAnOption) {
  for (const Setting& setting : allSettings()) {
    const std::string line = setting.line(DaemonSettings());
    const std::string value = line.substr(line.rfind(' ') + 1);
    const Options options = parsed({"--" + std::string(setting.name), value});
    EXPECT_EQ(options.chosen.size(), 1U) << line;
    EXPECT_EQ(settingsOf(options), DaemonSettings()) << line;
  }
  EXPECT_FALSE(settingsOf(parsed({"--lock-on-lid-close", "false"})).lockOnLidClose);
  EXPECT_TRUE(settingsOf(parsed({"--keep-display-on", "true"})).keepDisplayOn);
  EXPECT_EQ(parsed({"--config", "/f"}).config, "/f");
  EXPECT_TRUE(parsed({"--show-settings"}).showSettings);
}

TEST(NododCommandLineTest, ABusMayBeAnAddress) {
  EXPECT_EQ(parsed({"--bus", "unix:path=/run/bus"}).bus, "unix:path=/run/bus");
  EXPECT_EQ(parsed({"--bus", "system"}).bus, "system");
}

TEST(NododCommandLineTest, EveryPowerChoiceHasItsWord) {
  for (const PowerChoice choice : allCases<PowerChoice>()) {
    EXPECT_EQ(parsed({"--power", std::string(rawValue(choice))}).power, choice);
  }
}

TEST(NododCommandLineTest, NumbersOfSecondsMayHaveAFraction) {
  for (const auto& [text, value] : std::vector<std::pair<std::string, double>>{
           {"0", 0}, {"3", 3}, {"0.5", 0.5}, {".5", 0.5}, {"2.", 2}, {"1000000000", 1e9}}) {
    EXPECT_EQ(settingsOf(parsed({"--release-grace", text})).releaseGrace, Seconds(value)) << text;
  }
}

TEST(NododCommandLineTest, AWrongUseNamesTheOptionAndHelps) {
  struct Case {
    std::vector<std::string> arguments;
    std::string message;
  };

  const std::vector<Case> cases{
      {{"--minimum-battery", "101"}, "\"101\" is not a whole number from 0 to 100"},
      {{"--minimum-battery", "-1"}, "\"-1\" is not a whole number from 0 to 100"},
      {{"--minimum-battery", "20%"}, "--minimum-battery"},
      {{"--max-minutes", "0"}, "--max-minutes"},
      {{"--max-minutes", "1.5"}, "--max-minutes"},
      {{"--max-minutes", "0x10"}, "--max-minutes"},
      {{"--max-minutes", "99999999999999999999"}, "--max-minutes"},
      {{"--lid-open-grace", "-1"}, "--lid-open-grace"},
      {{"--no-route-grace", "inf"}, "--no-route-grace"},
      {{"--no-route-grace", ""}, "--no-route-grace"},
      {{"--release-grace", "nan"}, "--release-grace"},
      {{"--release-grace", "inf"}, "--release-grace"},
      {{"--release-grace", "-0.5"}, "--release-grace"},
      {{"--release-grace", "1e3"}, "--release-grace"},
      {{"--release-grace", "1.2.3"}, "--release-grace"},
      {{"--release-grace", "."}, "--release-grace"},
      {{"--release-grace", "1000000001"}, "--release-grace"},
      {{"--release-grace", std::string(400, '9')}, "--release-grace"},
      {{"--long-tools", "yes"}, "\"yes\" is not true or false"},
      {{"--config", ""}, "--config"},
      {{"--power", "caffeine"}, "\"caffeine\" is none of auto, pmset, logind, simulated"},
      {{"--state-dir", ""}, "--state-dir"},
      {{"--state-dir"}, "--state-dir"},
      {{"--bus", ""}, "--bus"},
      {{"--bus", "unix:path=/run/a;tcp:host=b"}, "is in a network"},
      {{"--bus", "sytem"}, "\"sytem\" is neither system nor session nor a bus address"},
      {{"--unknown"}, "--unknown"},
      {{"word"}, "word"},
      {{"--power", "\x1b[2J"}, "\\u{1b}[2J"},
  };
  for (const Case& each : cases) {
    const ParsedCommandLine result = parseCommandLine(each.arguments);
    const auto* usage = std::get_if<UsageError>(&result);
    ASSERT_NE(usage, nullptr) << each.arguments.front();
    EXPECT_THAT(usage->message, HasSubstr(each.message));
    EXPECT_EQ(usage->hint, "Try 'nodod --help' for more information.");
  }
}

TEST(NododCommandLineTest, HelpNamesEveryOption) {
  const ParsedCommandLine result = parseCommandLine({"--help"});
  const auto* help = std::get_if<HelpText>(&result);
  ASSERT_NE(help, nullptr);
  for (const char* option :
       {"--state-dir", "--bus", "--power", "--minimum-battery", "--max-minutes", "--lid-open-grace",
        "--no-route-grace", "--release-grace", "--log", "--once", "--version"}) {
    EXPECT_THAT(help->text, HasSubstr(option));
  }
}

TEST(NododCommandLineTest, TheVersionIsOneLine) {
  for (const char* option : {"--version", "-V"}) {
    const ParsedCommandLine result = parseCommandLine({option});
    const auto* text = std::get_if<HelpText>(&result);
    ASSERT_NE(text, nullptr) << option;
    EXPECT_THAT(text->text, ::testing::MatchesRegex("nodod [0-9]+\\.[0-9]+\\.[0-9]+\n"));
  }
}

}  // namespace
}  // namespace nodo::nodod
