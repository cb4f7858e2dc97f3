#pragma once

#include <NODOCore/sensing/SystemSnapshot.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
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
/// that is up, rejects nothing and does not lead to `lo`. What cannot be read is absent; nothing is
/// an error.
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
};

}  // namespace nodo
