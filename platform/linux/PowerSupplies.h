#pragma once

#include <NODOCore/sensing/SystemSnapshot.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace nodo {

/// What the kernel's power supplies say of the machine's power.
struct PowerReading {
  PowerSource source = PowerSource::unknown;
  std::optional<std::int64_t> batteryPercent;

  bool operator==(const PowerReading&) const = default;
};

/// A supply's attributes: the text of each by its name, or nothing for one that it does not have.
using SupplyAttributes = std::function<std::optional<std::string>(const char* name)>;

/// What the supplies together say, as LinuxSystemSnapshotProvider describes it.
PowerReading powerReadingOf(const std::vector<SupplyAttributes>& supplies);

/// Reads the supplies below `classFolder` (/sys/class/power_supply, as the kernel's
/// Documentation/ABI/testing/sysfs-class-power describes it). A supply that vanishes while it is
/// read does not count.
PowerReading readPowerSupplies(const std::filesystem::path& classFolder);

}  // namespace nodo
