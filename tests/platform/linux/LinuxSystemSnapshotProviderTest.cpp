#include <platform/linux/LinuxSystemSnapshotProvider.h>
#include <testing/TemporaryFolder.h>

#include <gtest/gtest.h>

namespace nodo {
namespace {

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
