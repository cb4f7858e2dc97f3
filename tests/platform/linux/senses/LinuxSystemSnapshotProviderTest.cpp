#include <platform/linux/senses/LinuxSystemSnapshotProvider.h>
#include <testing/TemporaryFolder.h>

#include <map>
#include <string>

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

TEST(LinuxSystemSnapshotProviderTest, GathersPowerRouteAndLid) {
  const test::TemporaryFolder root;
  root.write("sys/class/power_supply/BAT0/type", "Battery\n");
  root.write("sys/class/power_supply/BAT0/capacity", "81\n");
  root.write("proc/net/route", "Iface\n");
  const LinuxSystemSnapshotProvider provider([] { return std::optional(true); }, root.path());
  const Date now = dateFromSeconds(1769847300.5);

  EXPECT_EQ(provider.snapshot(now), (SystemSnapshot{.now = now,
                                                    .powerSource = PowerSource::battery,
                                                    .batteryPercent = 81,
                                                    .defaultRouteAvailable = false,
                                                    .lidClosed = true}));
}

TEST(LinuxSystemSnapshotProviderTest, WhatCannotBeReadIsAbsent) {
  const test::TemporaryFolder root;
  const LinuxSystemSnapshotProvider provider([] { return std::optional<bool>(); }, root.path());
  EXPECT_EQ(provider.snapshot(Date()), SystemSnapshot{});
}

}  // namespace
}  // namespace nodo
