#include <platform/linux/PowerSupplies.h>
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

TEST_F(PowerSuppliesTest, WithoutSuppliesTheSourceIsUnknown) {
  EXPECT_EQ(read(), PowerReading{});
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
  EXPECT_EQ(read(), PowerReading{});
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
  EXPECT_EQ(read(), PowerReading{});
}

}  // namespace
}  // namespace nodo
