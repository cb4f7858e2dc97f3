#pragma once

#include <NODOCore/sensing/SystemSnapshot.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace nodo {

/// What the kernel's power supplies say of the machine's power.
struct PowerReading {
  PowerSource source = PowerSource::unknown;
  std::optional<std::int64_t> batteryPercent;

  bool operator==(const PowerReading&) const = default;
};

/// A device's attributes: the text of each by its name, or nothing for one that it does not have.
using DeviceAttributes = std::function<std::optional<std::string>(const char* name)>;

/// What the supplies together say, as LinuxSystemSnapshotProvider describes it.
PowerReading powerReadingOf(const std::vector<DeviceAttributes>& supplies);

/// Reads the supplies below `classFolder` (/sys/class/power_supply, as the kernel's
/// Documentation/ABI/testing/sysfs-class-power describes it). A supply that vanishes while it is
/// read does not count.
PowerReading readPowerSupplies(const std::filesystem::path& classFolder);

/// What a thermal zone's trip points come to, in thousandths of a degree Celsius.
struct ThermalLimits {
  std::string name;  ///< of the zone
  std::optional<std::int64_t> seriousFrom;
  std::optional<std::int64_t> criticalFrom;

  bool operator==(const ThermalLimits&) const = default;
};

/// The limits of a zone, or nothing where it has none or is disabled.
///
/// Critical from 5 degrees below the critical trip point, since at that point the kernel switches
/// the machine off and there is nothing left to save; between two looks, a minute apart, a laptop
/// in a bag gains about that much. Serious from the hot trip point, at which the firmware wants the
/// machine asleep; where there is none, from 10 degrees below the critical one. A trip point below
/// 45 °C, which a summer's day may reach, or above 150 °C is none.
std::optional<ThermalLimits> thermalLimitsOf(const DeviceAttributes& zone);

/// What a zone of that many thousandths of a degree says; nothing by a temperature that is not
/// above 0 °C, or above 150 °C, as those of sensors that are asleep or absent are.
std::optional<MachineStrain> strainOf(const ThermalLimits& limits, std::int64_t temperature);

/// The thermal zones below a folder (/sys/class/thermal, as the kernel's
/// Documentation/ABI/testing/sysfs-class-thermal describes it). Not thread-safe.
class ThermalZones {
 public:
  explicit ThermalZones(std::filesystem::path classFolder) : folder_(std::move(classFolder)) {}

  /// The pressure of the zone that is worst, and that zone where the pressure is serious or worse;
  /// nothing where no zone tells. Zones and their limits are those of at most ten minutes before
  /// `now`: they hardly ever change, and are in many more files than the temperatures.
  MachineStrain read(Date now);

 private:
  struct Zone {
    DeviceAttributes attributes;
    ThermalLimits limits;
  };

  void findZones();

  std::filesystem::path folder_;
  std::vector<Zone> zones_;
  std::optional<Date> foundAt_;
};

/// Whether the firmware runs by its "low-power" profile, from `profile`
/// (/sys/firmware/acpi/platform_profile); nothing where it has no profiles.
std::optional<bool> readLowPowerMode(const std::filesystem::path& profile);

/// Whether a default route exists, from /proc/net/route and /proc/net/ipv6_route below `procNet`.
/// Nothing when neither can be read.
std::optional<bool> readDefaultRoute(const std::filesystem::path& procNet);

/// The same for the two files' texts. Rows that are not understood are passed over.
bool hasDefaultRouteIPv4(std::string_view table);
bool hasDefaultRouteIPv6(std::string_view table);

/// Reads the machine from sysfs and /proc.
///
/// Power: a supply other than a battery that is online means mains, and so does a machine without
/// any supply; else a battery means battery; else unknown. Batteries of peripherals and empty bays
/// do not count; the charge is that of all batteries together. Default route: one over IPv4 or IPv6
/// that is up, rejects nothing and does not lead to `lo`. Heat: by the thermal zones. What cannot
/// be read is absent; nothing is an error.
class LinuxSystemSnapshotProvider : public SystemSnapshotProviding {
 public:
  /// Whether the lid is closed, or nothing when that cannot be told. Must not throw.
  using LidReading = std::function<std::optional<bool>()>;

  /// `root`: the folder that holds "sys" and "proc".
  explicit LinuxSystemSnapshotProvider(LidReading lidClosed, std::filesystem::path root = "/");

  SystemSnapshot snapshot(Date now) const override;

 private:
  LidReading lidClosed_;
  std::filesystem::path root_;
  mutable ThermalZones thermalZones_;  // what it remembers spares work and changes no answer
};

}  // namespace nodo
