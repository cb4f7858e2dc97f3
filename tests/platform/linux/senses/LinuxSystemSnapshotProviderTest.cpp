#include <platform/linux/senses/LinuxSystemSnapshotProvider.h>
#include <testing/TemporaryFolder.h>

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace nodo {
namespace {

using Attributes = std::map<std::string, std::string>;

// A /sys/class/power_supply that a test writes.
class PowerSuppliesTest : public ::testing::Test {
 protected:
  void add(const std::string& supply, const Attributes& attributes) const {
    for (const auto& [name, value] : attributes) {
      sys.write(supply + "/" + name, value + "\n");
    }
  }

  PowerReading read() const { return readPowerSupplies(sys.path()); }

  test::TemporaryFolder sys;
};

PowerReading battery(std::int64_t percent) {
  return {.source = PowerSource::battery, .batteryPercent = percent};
}

TEST_F(PowerSuppliesTest, AMachineWithoutSuppliesRunsOnMains) {
  EXPECT_EQ(read(), (PowerReading{.source = PowerSource::ac}));
  add("BAT0", {{"type", "Battery"}, {"present", "0"}});
  EXPECT_EQ(read(), (PowerReading{.source = PowerSource::ac})) << "as one with an empty bay does";
}

TEST_F(PowerSuppliesTest, WhereTheKernelTellsOfNoSuppliesNothingIsKnown) {
  EXPECT_EQ(readPowerSupplies(sys / "missing"), PowerReading{});
}

TEST_F(PowerSuppliesTest, ADesktopOnMainsHasNoCharge) {
  add("AC", {{"type", "Mains"}, {"online", "1"}});
  EXPECT_EQ(read(), (PowerReading{.source = PowerSource::ac}));
}

TEST_F(PowerSuppliesTest, AMainsSupplyThatIsOfflineTellsNothing) {
  add("AC", {{"type", "Mains"}, {"online", "0"}});
  EXPECT_EQ(read().source, PowerSource::unknown);
}

TEST_F(PowerSuppliesTest, ALaptopOnItsBatteryTellsTheBatterysOwnFigure) {
  add("AC", {{"type", "Mains"}, {"online", "0"}});
  add("BAT0", {{"type", "Battery"},
               {"present", "1"},
               {"capacity", "40"},
               {"energy_now", "1"},
               {"energy_full", "100"}});
  EXPECT_EQ(read(), battery(40));
}

TEST_F(PowerSuppliesTest, ALaptopOnMainsTellsItsChargeToo) {
  add("AC", {{"type", "Mains"}, {"online", "1"}});
  add("BAT0", {{"type", "Battery"}, {"capacity", "7"}});
  EXPECT_EQ(read(), (PowerReading{.source = PowerSource::ac, .batteryPercent = 7}));
}

TEST_F(PowerSuppliesTest, AnyOtherSupplyThatIsOnlineMeansMains) {
  add("BAT0", {{"type", "Battery"}, {"capacity", "50"}});
  add("ucsi-source-psy-USBC000:001", {{"type", "USB"}, {"online", "1"}});
  EXPECT_EQ(read().source, PowerSource::ac);
}

TEST_F(PowerSuppliesTest, AProgrammableSupplyCountsAsOnline) {
  add("BAT0", {{"type", "Battery"}, {"capacity", "50"}});
  add("usb", {{"type", "USB"}, {"online", "2"}});
  EXPECT_EQ(read().source, PowerSource::ac);
}

TEST_F(PowerSuppliesTest, APeripheralsBatteryDoesNotCount) {
  add("hidpp_battery_0",
      {{"type", "Battery"}, {"scope", "Device"}, {"online", "1"}, {"capacity", "5"}});
  EXPECT_EQ(read(), (PowerReading{.source = PowerSource::ac}));
}

TEST_F(PowerSuppliesTest, AnEmptyBayDoesNotCount) {
  add("BAT0", {{"type", "Battery"}, {"present", "0"}, {"capacity", "0"}});
  add("BAT1", {{"type", "Battery"}, {"present", "1"}, {"capacity", "66"}});
  EXPECT_EQ(read(), battery(66));
}

TEST_F(PowerSuppliesTest, TwoBatteriesAreWeighedByTheirSize) {
  add("BAT0",
      {{"type", "Battery"}, {"energy_now", "20"}, {"energy_full", "50"}, {"capacity", "40"}});
  add("BAT1",
      {{"type", "Battery"}, {"energy_now", "10"}, {"energy_full", "10"}, {"capacity", "100"}});
  EXPECT_EQ(read(), battery(50));
}

TEST_F(PowerSuppliesTest, EnergyAndChargeAreMadeComparableByTheVoltage) {
  add("BAT0", {{"type", "Battery"},
               {"energy_now", "20000000"},
               {"energy_full", "50000000"},
               {"capacity", "40"}});
  add("BAT1", {{"type", "Battery"},
               {"charge_now", "1500000"},
               {"charge_full", "2000000"},
               {"voltage_min_design", "11100000"},
               {"capacity", "75"}});
  EXPECT_EQ(read(), battery(50));  // 36.65 of 72.2 Wh
}

TEST_F(PowerSuppliesTest, ChargesAloneAreAddedUp) {
  add("BAT0", {{"type", "Battery"}, {"charge_now", "1"}, {"charge_full", "4"}});
  add("BAT1", {{"type", "Battery"}, {"charge_now", "3"}, {"charge_full", "4"}});
  EXPECT_EQ(read(), battery(50));
}

TEST_F(PowerSuppliesTest, WithoutComparableMeasuresTheMeanCapacityCounts) {
  add("BAT0",
      {{"type", "Battery"}, {"energy_now", "20"}, {"energy_full", "50"}, {"capacity", "40"}});
  add("BAT1", {{"type", "Battery"}, {"capacity", "80"}});
  EXPECT_EQ(read(), battery(60));
}

TEST_F(PowerSuppliesTest, AnImpossibleCapacityCountsInTheMeanAsFull) {
  for (const char* name : {"BAT0", "BAT1"}) {
    add(name, {{"type", "Battery"}, {"capacity", "9223372036854775807"}});
  }
  EXPECT_EQ(read(), battery(100));
}

TEST_F(PowerSuppliesTest, ABatteryThatTellsNothingLeavesTheChargeAbsent) {
  add("BAT0", {{"type", "Battery"}, {"capacity", "many"}});
  EXPECT_EQ(read(), (PowerReading{.source = PowerSource::battery}));
}

TEST_F(PowerSuppliesTest, AFullGaugeAboveItsSizeReadsAsFull) {
  add("BAT0", {{"type", "Battery"}, {"energy_now", "51"}, {"energy_full", "50"}});
  EXPECT_EQ(read(), battery(100));
}

TEST_F(PowerSuppliesTest, ASupplyWithoutTypeIsPassedOver) {
  add("odd", {{"online", "1"}});
  EXPECT_EQ(read(), (PowerReading{.source = PowerSource::ac}));
}

const std::string header4 =
    "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT  \n";

std::string row4(const std::string& interface, const std::string& destination,
                 const std::string& flags, const std::string& mask) {
  return interface + "\t" + destination + "\t0100000A\t" + flags + "\t0\t0\t100\t" + mask +
         "\t0\t0\t0  \n";
}

std::string row6(const std::string& destination, const std::string& length,
                 const std::string& flags, const std::string& interface) {
  return destination + " " + length + " 00000000000000000000000000000000 00 " +
         "fe800000000000000000000000000001 00000400 00000001 00000000 " + flags + " " + interface +
         "\n";
}

const std::string zero6(32, '0');

TEST(DefaultRouteTest, ADefaultRouteOverIPv4IsSeen) {
  EXPECT_TRUE(hasDefaultRouteIPv4(header4 + row4("eth0", "0000000A", "0001", "00FFFFFF") +
                                  row4("eth0", "00000000", "0003", "00000000")));
}

TEST(DefaultRouteTest, ATunnelsRouteWithoutGatewayIsSeen) {
  EXPECT_TRUE(hasDefaultRouteIPv4(header4 + row4("tun0", "00000000", "0001", "00000000")));
}

TEST(DefaultRouteTest, OtherRoutesOverIPv4AreNone) {
  for (const std::string& table :
       {std::string(), header4, header4 + row4("eth0", "0000000A", "0001", "00FFFFFF"),
        header4 + row4("eth0", "00000000", "0003", "00000080"),  // half of the addresses
        header4 + row4("eth0", "00000000", "0002", "00000000"),  // not up
        header4 + row4("*", "00000000", "0201", "00000000"),     // rejects
        header4 + row4("lo", "00000000", "0003", "00000000"),    // leads nowhere
        header4 + row4("eth0", "00000000", "zzzz", "00000000"),  // not understood
        std::string("eth0 00000000\n"), std::string("\0\xff\n", 3)}) {
    EXPECT_FALSE(hasDefaultRouteIPv4(table)) << table;
  }
}

TEST(DefaultRouteTest, ADefaultRouteOverIPv6IsSeen) {
  EXPECT_TRUE(
      hasDefaultRouteIPv6(row6("fe800000000000000000000000000000", "40", "00000001", "eth0") +
                          row6(zero6, "00", "00000003", "eth0")));
}

TEST(DefaultRouteTest, OtherRoutesOverIPv6AreNone) {
  for (const std::string& table :
       {std::string(), row6("fe800000000000000000000000000000", "40", "00000001", "eth0"),
        row6(zero6, "00", "00200200", "lo"),  // what the kernel lists when there is none
        row6(zero6, "00", "00000203", "eth0"), row6(zero6, "01", "00000003", "eth0"),
        row6(zero6, "00", "00000002", "eth0"), std::string("00 00\n")}) {
    EXPECT_FALSE(hasDefaultRouteIPv6(table)) << table;
  }
}

// As Linux 6.18 lists them after "ip route add TYPE default" and "ip -6 route add TYPE default" for
// the types blackhole, unreachable, prohibit and throw.
TEST(DefaultRouteTest, ARouteThatDiscardsWhatItMatchesIsNone) {
  for (const std::string row : {"*\t00000000\t00000000\t0001\t0\t0\t0\t00000000\t0\t0\t0  \n",
                                "*\t00000000\t00000000\t0201\t0\t0\t5\t00000000\t0\t0\t0  \n"}) {
    EXPECT_FALSE(hasDefaultRouteIPv4(header4 + row)) << row;
    EXPECT_TRUE(hasDefaultRouteIPv4(header4 + row + row4("eth0", "00000000", "0003", "00000000")));
  }
  const std::string row =
      zero6 + " 00 " + zero6 + " 00 " + zero6 + " 00000400 00000001 00000000 00200200       lo\n";
  EXPECT_FALSE(hasDefaultRouteIPv6(row));
  EXPECT_TRUE(hasDefaultRouteIPv6(row + row6(zero6, "00", "00000003", "eth0")));
}

TEST(DefaultRouteTest, EitherProtocolSuffices) {
  const test::TemporaryFolder net;
  net.write("route", header4);
  EXPECT_EQ(readDefaultRoute(net.path()), false);
  net.write("ipv6_route", row6(zero6, "00", "00000003", "wlan0"));
  EXPECT_EQ(readDefaultRoute(net.path()), true);
  net.write("ipv6_route", "");
  EXPECT_EQ(readDefaultRoute(net.path()), false);
  net.write("route", header4 + row4("eth0", "00000000", "0003", "00000000"));
  EXPECT_EQ(readDefaultRoute(net.path()), true);
}

TEST(DefaultRouteTest, WithoutEitherTableNothingIsKnown) {
  const test::TemporaryFolder net;
  EXPECT_EQ(readDefaultRoute(net.path()), std::nullopt);
}

// A /sys/class/thermal that a test writes.
class ThermalZonesTest : public ::testing::Test {
 protected:
  using TripPoints = std::vector<std::pair<std::string, std::string>>;  // type and temperature

  void add(const std::string& zone, const std::string& temperature, const TripPoints& points,
           const std::string& mode = "enabled") const {
    const std::string folder = "thermal_zone" + zone + "/";
    sys.write(folder + "type", "zone" + zone + "\n");
    sys.write(folder + "mode", mode + "\n");
    heat(zone, temperature);
    for (std::size_t i = 0; i < points.size(); ++i) {
      const std::string point = folder + "trip_point_" + std::to_string(i);
      sys.write(point + "_type", points[i].first + "\n");
      sys.write(point + "_temp", points[i].second + "\n");
    }
  }

  void heat(const std::string& zone, const std::string& temperature) const {
    sys.write("thermal_zone" + zone + "/temp", temperature + "\n");
  }

  MachineStrain read(double at = 0) { return zones.read(dateFromSeconds(at)); }

  test::TemporaryFolder sys;
  ThermalZones zones{sys.path()};
};

MachineStrain hot(ThermalPressure pressure, const std::string& name, std::int64_t celsius,
                  std::int64_t limit) {
  return {.thermalPressure = pressure,
          .hotZone = HotZone{.name = name, .celsius = celsius, .limitCelsius = limit},
          .lowPowerMode = std::nullopt};
}

const MachineStrain cool{.thermalPressure = ThermalPressure::nominal};

TEST_F(ThermalZonesTest, TemperaturesBecomeLevelsByTheTripPoints) {
  add("0", "0", {{"passive", "60000"}, {"critical", "100000"}});
  add("1", "0", {{"hot", "80000"}, {"critical", "100000"}});
  add("2", "0", {{"active", "40000"}, {"hot", "80000"}});

  const struct {
    const char* zone;
    const char* temperature;
    MachineStrain expected;
  } rows[] = {
      {"0", "1", cool},
      {"0", "89999", cool},
      {"0", "90000", hot(ThermalPressure::serious, "zone0", 90, 90)},
      {"0", "94999", hot(ThermalPressure::serious, "zone0", 94, 90)},
      {"0", "95000", hot(ThermalPressure::critical, "zone0", 95, 95)},
      {"0", "150000", hot(ThermalPressure::critical, "zone0", 150, 95)},
      {"1", "79999", cool},
      {"1", "80000", hot(ThermalPressure::serious, "zone1", 80, 80)},
      {"1", "95500", hot(ThermalPressure::critical, "zone1", 95, 95)},
      {"2", "80000", hot(ThermalPressure::serious, "zone2", 80, 80)},
      {"2", "140000", hot(ThermalPressure::serious, "zone2", 140, 80)},
  };

  for (const auto& [zone, temperature, expected] : rows) {
    heat(zone, temperature);
    EXPECT_EQ(read(), expected) << zone << " at " << temperature;
    heat(zone, "0");
  }
}

TEST_F(ThermalZonesTest, WhatMakesNoSenseTellsNothing) {
  add("0", "99000",
      {{"critical", "0"}, {"hot", "-274000"}, {"hot", "44999"}, {"critical", "2147483647"}});
  add("1", "99000", {{"critical", "100000"}}, "disabled");
  add("2", "99000", {{"passive", "50000"}});
  add("3", "99000", {{"critical", "many"}});
  add("4", "99000", {});
  EXPECT_EQ(read(), MachineStrain());
  add("5", "0", {{"critical", "100000"}});
  for (const char* temperature : {"0", "-1", "-273000", "150001", "255000", "", "hot", "1e3"}) {
    heat("5", temperature);
    EXPECT_EQ(read(600), MachineStrain()) << temperature;
  }
}

TEST_F(ThermalZonesTest, WithoutZonesNothingIsKnown) {
  EXPECT_EQ(read(), MachineStrain());
  sys.write("cooling_device0/type", "Processor\n");
  EXPECT_EQ(read(600), MachineStrain());
  ThermalZones missing(sys / "missing");
  EXPECT_EQ(missing.read(Date()), MachineStrain());
}

TEST_F(ThermalZonesTest, TheLowestTripPointOfAKindCounts) {
  add("0", "86000",
      {{"critical", "110000"}, {"critical", "100000"}, {"hot", "95000"}, {"hot", "85000"}});
  EXPECT_EQ(read(), hot(ThermalPressure::serious, "zone0", 86, 85));
}

TEST_F(ThermalZonesTest, TheWorstZoneIsTheOneThatIsNamed) {
  add("0", "91000", {{"critical", "100000"}});
  add("1", "93000", {{"critical", "100000"}});
  add("2", "99000", {{"critical", "120000"}});
  EXPECT_EQ(read(), hot(ThermalPressure::serious, "zone1", 93, 90));
  add("3", "56000", {{"critical", "60000"}});
  EXPECT_EQ(read(600), hot(ThermalPressure::critical, "zone3", 56, 55));
}

TEST_F(ThermalZonesTest, AZoneThatVanishesOrComesIsFoundWithinTenMinutes) {
  add("0", "97000", {{"critical", "100000"}});
  EXPECT_EQ(read(), hot(ThermalPressure::critical, "zone0", 97, 95));
  std::filesystem::remove_all(sys / "thermal_zone0");
  EXPECT_EQ(read(60), MachineStrain());
  add("1", "97000", {{"critical", "100000"}});
  EXPECT_EQ(read(599), MachineStrain());
  EXPECT_EQ(read(600), hot(ThermalPressure::critical, "zone1", 97, 95));
}

TEST_F(ThermalZonesTest, AClockThatIsPutBackPutsOffNoLook) {
  EXPECT_EQ(read(86400), MachineStrain());
  add("0", "97000", {{"critical", "100000"}});
  EXPECT_EQ(read(0), hot(ThermalPressure::critical, "zone0", 97, 95));
}

TEST(LowPowerModeTest, ItIsTheFirmwaresProfileOfThatName) {
  const test::TemporaryFolder acpi;
  EXPECT_EQ(readLowPowerMode(acpi / "platform_profile"), std::nullopt);
  for (const char* profile : {"balanced", "performance", "quiet", ""}) {
    acpi.write("platform_profile", std::string(profile) + "\n");
    EXPECT_EQ(readLowPowerMode(acpi / "platform_profile"), false) << profile;
  }
  acpi.write("platform_profile", "low-power\n");
  EXPECT_EQ(readLowPowerMode(acpi / "platform_profile"), true);
}

TEST(LinuxSystemSnapshotProviderTest, GathersPowerRouteLidHeatAndLowPowerMode) {
  const test::TemporaryFolder root;
  root.write("sys/class/power_supply/BAT0/type", "Battery\n");
  root.write("sys/class/power_supply/BAT0/capacity", "81\n");
  root.write("proc/net/route", "Iface\n");
  root.write("sys/class/thermal/thermal_zone0/type", "acpitz\n");
  root.write("sys/class/thermal/thermal_zone0/temp", "91000\n");
  root.write("sys/class/thermal/thermal_zone0/trip_point_0_type", "critical\n");
  root.write("sys/class/thermal/thermal_zone0/trip_point_0_temp", "100000\n");
  root.write("sys/firmware/acpi/platform_profile", "low-power\n");
  const LinuxSystemSnapshotProvider provider([] { return std::optional(true); }, root.path());
  const Date now = dateFromSeconds(1769847300.5);

  EXPECT_EQ(provider.snapshot(now), (SystemSnapshot{.now = now,
                                                    .powerSource = PowerSource::battery,
                                                    .batteryPercent = 81,
                                                    .defaultRouteAvailable = false,
                                                    .lidClosed = true,
                                                    .thermalPressure = ThermalPressure::serious,
                                                    .lowPowerMode = true}));
  EXPECT_EQ(provider.snapshot(now).hotZone,
            (HotZone{.name = "acpitz", .celsius = 91, .limitCelsius = 90}));
}

TEST(LinuxSystemSnapshotProviderTest, WhatCannotBeReadIsAbsent) {
  const test::TemporaryFolder root;
  const LinuxSystemSnapshotProvider provider([] { return std::optional<bool>(); }, root.path());
  EXPECT_EQ(provider.snapshot(Date()), SystemSnapshot{});
}

}  // namespace
}  // namespace nodo
