#include <platform/linux/DefaultRoute.h>
#include <platform/linux/LinuxSystemSnapshotProvider.h>
#include <platform/linux/PowerSupplies.h>

#include <utility>

namespace nodo {

LinuxSystemSnapshotProvider::LinuxSystemSnapshotProvider(LidReading lidClosed,
                                                         std::filesystem::path root)
    : lidClosed_(std::move(lidClosed)), root_(std::move(root)) {}

SystemSnapshot LinuxSystemSnapshotProvider::snapshot(Date now) const {
  const PowerReading power = readPowerSupplies(root_ / "sys/class/power_supply");
  return {.now = now,
          .powerSource = power.source,
          .batteryPercent = power.batteryPercent,
          .defaultRouteAvailable = readDefaultRoute(root_ / "proc/net"),
          .lidClosed = lidClosed_()};
}

}  // namespace nodo
