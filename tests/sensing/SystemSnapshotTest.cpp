#include <NODOCore/base/Errors.h>
#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/sensing/SystemSnapshot.h>
#include <testing/JSONRows.h>
#include <testing/ScriptedCommandRunner.h>

#include <cerrno>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include <gtest/gtest.h>

namespace nodo {
namespace {

using test::memberOf;
using test::optionalOf;
using test::ScriptedCommandRunner;
using test::testRows;
using test::valueOf;

using CommandLines = std::vector<std::string>;
using Provider = MacSystemSnapshotProvider;

constexpr char battery[] = "/usr/bin/pmset -g batt";
constexpr char route[] = "/sbin/route -n get default";
constexpr char lid[] = "/usr/sbin/ioreg -r -k AppleClamshellState -d 4";

const Date noon = dateFromSeconds(1769860800);

SystemSnapshot fullSnapshot() {
  return {.now = noon,
          .powerSource = PowerSource::battery,
          .batteryPercent = 85,
          .defaultRouteAvailable = true,
          .lidClosed = false};
}

TEST(SystemSnapshotTest, ItsJSONHasItsKeysInTheirOrder) {
  const std::string text =
      R"({"now":"2026-01-31T12:00:00Z","powerSource":"battery","batteryPercent":85,)"
      R"("defaultRouteAvailable":true,"lidClosed":false})";
  EXPECT_EQ(encodeJSON(fullSnapshot(), JSONLayout::compact), text);
  EXPECT_EQ(decodeJSON<SystemSnapshot>(text), fullSnapshot());
}

TEST(SystemSnapshotTest, HeatAndLowPowerModeFollowInItsJSON) {
  SystemSnapshot snapshot{.now = noon,
                          .lidClosed = true,
                          .thermalPressure = ThermalPressure::critical,
                          .hotZone = HotZone{.name = "acpitz", .celsius = 97, .limitCelsius = 95},
                          .lowPowerMode = false};
  const std::string text =
      R"({"now":"2026-01-31T12:00:00Z","powerSource":"unknown","lidClosed":true,)"
      R"("thermalPressure":"critical","hotZone":{"name":"acpitz","celsius":97,"limitCelsius":95},)"
      R"("lowPowerMode":false})";
  EXPECT_EQ(encodeJSON(snapshot, JSONLayout::compact), text);
  EXPECT_EQ(decodeJSON<SystemSnapshot>(text), snapshot);
  EXPECT_EQ(decodeJSON<SystemSnapshot>(text).hotZone, snapshot.hotZone);
}

TEST(SystemSnapshotTest, EverythingButDegreesCountsForEquality) {
  const SystemSnapshot hot{.now = noon,
                           .thermalPressure = ThermalPressure::serious,
                           .hotZone = HotZone{.name = "a", .celsius = 91, .limitCelsius = 90}};
  const auto changed = [&](void (*change)(SystemSnapshot&)) {
    SystemSnapshot other = hot;
    change(other);
    return other;
  };
  EXPECT_EQ(hot, changed([](SystemSnapshot& other) { other.hotZone->celsius = 94; }));
  EXPECT_EQ(hot, changed([](SystemSnapshot& other) { other.hotZone->name = "b"; }));
  for (const auto change : {+[](SystemSnapshot& other) { other.now += Seconds(1); },
                            +[](SystemSnapshot& other) { other.powerSource = PowerSource::ac; },
                            +[](SystemSnapshot& other) { other.batteryPercent = 1; },
                            +[](SystemSnapshot& other) { other.defaultRouteAvailable = true; },
                            +[](SystemSnapshot& other) { other.lidClosed = true; },
                            +[](SystemSnapshot& other) { other.thermalPressure.reset(); },
                            +[](SystemSnapshot& other) { other.lowPowerMode = false; }}) {
    EXPECT_NE(hot, changed(change));
  }
}

TEST(SystemSnapshotTest, WhatIsUnknownIsLeftOut) {
  SystemSnapshot snapshot;
  snapshot.now = noon;
  const std::string text = R"({"now":"2026-01-31T12:00:00Z","powerSource":"unknown"})";
  EXPECT_EQ(encodeJSON(snapshot, JSONLayout::compact), text);
  EXPECT_EQ(decodeJSON<SystemSnapshot>(text), snapshot);
}

TEST(SystemSnapshotTest, TimeAndPowerSourceAreRequired) {
  for (const char* text : {R"({"now":"2026-01-31T12:00:00Z"})", R"({"powerSource":"ac"})",
                           R"({"now":"2026-01-31T12:00:00Z","powerSource":"AC"})",
                           R"({"now":"2026-01-31T12:00:00Z","powerSource":"ac","lidClosed":0})"}) {
    EXPECT_THROW(decodeJSON<SystemSnapshot>(text), DecodingError) << text;
  }
}

TEST(SystemSnapshotTest, TheStaticProviderDatesItsValue) {
  const StaticSystemSnapshotProvider provider(fullSnapshot());
  SystemSnapshot expected = fullSnapshot();
  expected.now = noon + Seconds(90);
  EXPECT_EQ(provider.snapshot(noon + Seconds(90)), expected);
  EXPECT_EQ(provider.value, fullSnapshot());
}

class MacSystemSnapshotProviderTest : public ::testing::Test {
 protected:
  SystemSnapshot snapshot() { return Provider(runner).snapshot(noon); }

  // The command lines that were run when `tool` cannot be started.
  CommandLines runWithout(const std::string& tool) {
    runner->removeTool(tool);
    try {
      snapshot();
      ADD_FAILURE() << "a snapshot without " << tool;
    } catch (const std::system_error& error) {
      EXPECT_EQ(error.code(), std::error_code(ENOENT, std::generic_category()));
    }
    return runner->commandLines();
  }

  std::shared_ptr<ScriptedCommandRunner> runner = std::make_shared<ScriptedCommandRunner>();
};

TEST_F(MacSystemSnapshotProviderTest, ALaptopOnBatteryWithItsLidClosed) {
  runner->answer(battery,
                 "Now drawing from 'Battery Power'\n -InternalBattery-0\t7%; discharging\n");
  runner->answer(route, "   route to: default\n    gateway: 10.0.0.1\n  interface: en0\n");
  runner->answer(lid, "  | |   \"AppleClamshellState\" = Yes\n");
  EXPECT_EQ(snapshot(), (SystemSnapshot{.now = noon,
                                        .powerSource = PowerSource::battery,
                                        .batteryPercent = 7,
                                        .defaultRouteAvailable = true,
                                        .lidClosed = true}));
  EXPECT_EQ(runner->commandLines(), (CommandLines{battery, route, lid}));
}

TEST_F(MacSystemSnapshotProviderTest, WhatTheSystemSaysOfItsStrainIsPartOfIt) {
  const SystemSnapshot strained = Provider(runner, [] {
                                    return MachineStrain{.thermalPressure = ThermalPressure::fair,
                                                         .hotZone = std::nullopt,
                                                         .lowPowerMode = true};
                                  }).snapshot(noon);
  EXPECT_EQ(strained.thermalPressure, ThermalPressure::fair);
  EXPECT_EQ(strained.lowPowerMode, true);
}

TEST_F(MacSystemSnapshotProviderTest, ADesktopWithoutARoute) {
  runner->answer(battery, "Now drawing from 'AC Power'\n");
  runner->answer(route, "", 1, "route: writing to routing socket: not in table\n");
  EXPECT_EQ(snapshot(), (SystemSnapshot{.now = noon,
                                        .powerSource = PowerSource::ac,
                                        .batteryPercent = std::nullopt,
                                        .defaultRouteAvailable = false,
                                        .lidClosed = std::nullopt}));
}

TEST_F(MacSystemSnapshotProviderTest, ToolsThatSayNothingLeaveEverythingUnknown) {
  SystemSnapshot unknown;
  unknown.now = noon;
  EXPECT_EQ(snapshot(), unknown);
}

TEST_F(MacSystemSnapshotProviderTest, OnlyTheRoutesExitStatusMatters) {
  runner->answer(battery, "'AC Power' 85%", 1);
  runner->answer(lid, "AppleClamshellState = No", 9);
  runner->answer(route, "interface: utun3", 0);
  EXPECT_EQ(snapshot(), (SystemSnapshot{.now = noon,
                                        .powerSource = PowerSource::ac,
                                        .batteryPercent = 85,
                                        .defaultRouteAvailable = true,
                                        .lidClosed = false}));
}

TEST_F(MacSystemSnapshotProviderTest, AToolThatCannotBeStartedEndsTheSnapshotThere) {
  EXPECT_EQ(runWithout("/usr/sbin/ioreg"), (CommandLines{battery, route, lid}));
  *runner = ScriptedCommandRunner();
  EXPECT_EQ(runWithout("/sbin/route"), (CommandLines{battery, route}));
  *runner = ScriptedCommandRunner();
  EXPECT_EQ(runWithout("/usr/bin/pmset"), (CommandLines{battery}));
}

TEST_F(MacSystemSnapshotProviderTest, TheChargeIsTheFirstPercentage) {
  for (const JSONValue& row : testRows("vectors/battery_percent.json")) {
    const auto output = valueOf<std::string>(row, "output");
    EXPECT_EQ(Provider::batteryPercent(output), optionalOf<std::int64_t>(row, "percent")) << output;
  }
}

TEST_F(MacSystemSnapshotProviderTest, TheToolsTextsAreRead) {
  for (const JSONValue& row : testRows("vectors/snapshot_texts.json")) {
    const auto output = valueOf<std::string>(row, "output");
    const auto kind = valueOf<std::string>(row, "case");
    SCOPED_TRACE(kind + ": " + output);
    if (kind == "lid from ioreg") {
      EXPECT_EQ(Provider::lidClosed(output), optionalOf<bool>(row, "expected"));
    } else if (kind == "power from pmset") {
      const JSONValue& expected = memberOf(row, "expected");
      EXPECT_EQ(Provider::powerSource(output), valueOf<PowerSource>(expected, "source"));
      EXPECT_EQ(Provider::batteryPercent(output), optionalOf<std::int64_t>(expected, "percent"));
    } else if (kind == "route (exit 0)") {
      EXPECT_EQ(Provider::defaultRouteAvailable(output, 0), optionalOf<bool>(row, "expected"));
    } else {
      ADD_FAILURE() << "a row of an unknown kind";
    }
  }
}

TEST_F(MacSystemSnapshotProviderTest, ThePowerSourceNeedsItsQuotes) {
  EXPECT_EQ(Provider::powerSource("Now drawing from 'Battery Power'"), PowerSource::battery);
  EXPECT_EQ(Provider::powerSource("NOW DRAWING FROM \"battery POWER\""), PowerSource::battery);
  EXPECT_EQ(Provider::powerSource("\"ac power\""), PowerSource::ac);
  EXPECT_EQ(Provider::powerSource("'Battery Power\""), PowerSource::unknown);
  EXPECT_EQ(Provider::powerSource("Battery Power"), PowerSource::unknown);
  EXPECT_EQ(Provider::powerSource("'UPS Power'"), PowerSource::unknown);
}

TEST_F(MacSystemSnapshotProviderTest, MainsWinOverBattery) {
  EXPECT_EQ(Provider::powerSource("'Battery Power' 'AC Power'"), PowerSource::ac);
}

TEST_F(MacSystemSnapshotProviderTest, AFailedLookupOfTheRouteIsNoRouteWhateverItPrints) {
  for (const std::int32_t exitCode : {1, 2, 9, 255, -1}) {
    EXPECT_EQ(Provider::defaultRouteAvailable("gateway: 10.0.0.1", exitCode), false) << exitCode;
  }
  EXPECT_EQ(Provider::defaultRouteAvailable("", 0), std::nullopt);
  EXPECT_EQ(Provider::defaultRouteAvailable("GATEWAY: 10.0.0.1", 0), true);
}

TEST_F(MacSystemSnapshotProviderTest, TheFirstDecidingLineTellsTheLid) {
  EXPECT_EQ(Provider::lidClosed("AppleClamshellState = ?\nAppleClamshellState = Yes\n"
                                "AppleClamshellState = No"),
            true);
  EXPECT_EQ(Provider::lidClosed("yes\nno\n"), std::nullopt);
  EXPECT_EQ(Provider::lidClosed("AppleClamshellState = No, yes"), true);
  EXPECT_EQ(Provider::lidClosed("AppleClamshellState = 1\r\nYes"), true)
      << "CR LF is one character, which ends no line";
}

TEST_F(MacSystemSnapshotProviderTest, InvalidUTF8IsReadAroundOf) {
  EXPECT_EQ(Provider::batteryPercent("\xFF"
                                     "42%\xFF"),
            42);
  EXPECT_EQ(Provider::powerSource("\xFF'AC Power'\xC3"), PowerSource::ac);
  EXPECT_EQ(Provider::lidClosed("\xFF\nAppleClamshellState = Yes\xE2"), true);
}

TEST_F(MacSystemSnapshotProviderTest, AMegabyteIsReadToItsEnd) {
  const std::string digits(1000000, '9');
  EXPECT_EQ(Provider::batteryPercent(digits), std::nullopt);
  EXPECT_EQ(Provider::batteryPercent(digits + "%"), 999);
}

}  // namespace
}  // namespace nodo
