#pragma once

#include <NODOCore/sensing/SystemSnapshot.h>

#include <cstdint>
#include <filesystem>
#include <optional>

namespace nodo {

/// What the kernel's power supplies say of the machine's power.
struct PowerReading {
  PowerSource source = PowerSource::unknown;
  std::optional<std::int64_t> batteryPercent;

  bool operator==(const PowerReading&) const = default;
};

/// Reads the supplies below `classFolder` (/sys/class/power_supply, as the kernel's
/// Documentation/ABI/testing/sysfs-class-power describes it). A supply that vanishes while it is
/// read does not count.
PowerReading readPowerSupplies(const std::filesystem::path& classFolder);

}  // namespace nodo
