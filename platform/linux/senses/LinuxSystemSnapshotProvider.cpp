#include <NODOCore/base/Files.h>
#include <NODOCore/base/Text.h>
#include <platform/linux/senses/LinuxSystemSnapshotProvider.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <system_error>
#include <utility>

#include <fcntl.h>

namespace nodo {
namespace {

namespace fs = std::filesystem;

// The content of one of the kernel's files, or nothing when it cannot be read: an absent file and
// a device that does not answer mean the same to a reader of the machine's condition.
std::optional<std::string> readSmallFile(const fs::path& path) {
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file) {
    return std::nullopt;
  }
  try {
    return readToEnd(file, path.string());
  } catch (const std::system_error&) {
    return std::nullopt;
  }
}

// ---- power supplies

std::optional<std::string> attribute(const SupplyAttributes& supply, const char* name) {
  const auto content = supply(name);
  return content ? std::optional(std::string(trimmed(*content))) : std::nullopt;
}

std::optional<std::int64_t> number(const SupplyAttributes& supply, const char* name) {
  const auto text = attribute(supply, name);
  return text ? integerFromText<std::int64_t>(*text) : std::nullopt;
}

struct Fill {
  double now = 0;
  double full = 0;
};

struct Battery {
  std::optional<Fill> energy;  // in µWh
  std::optional<Fill> charge;  // in µAh
  std::optional<std::int64_t> capacity;
};

std::optional<Fill> fill(const SupplyAttributes& supply, const char* nowName,
                         const char* fullName) {
  const auto now = number(supply, nowName);
  const auto full = number(supply, fullName);
  if (!now || !full || *full <= 0) {
    return std::nullopt;
  }
  return Fill{.now = static_cast<double>(*now), .full = static_cast<double>(*full)};
}

Battery readBattery(const SupplyAttributes& supply) {
  Battery battery{.energy = fill(supply, "energy_now", "energy_full"),
                  .charge = fill(supply, "charge_now", "charge_full"),
                  .capacity = number(supply, "capacity")};
  // Drivers tell either energy or charge; the design voltage makes the two comparable.
  const auto microvolts = number(supply, "voltage_min_design");
  if (!battery.energy && battery.charge && microvolts && *microvolts > 0) {
    const double volts = static_cast<double>(*microvolts) / 1e6;
    battery.energy = Fill{.now = battery.charge->now * volts, .full = battery.charge->full * volts};
  }
  return battery;
}

std::int64_t asPercent(double share) {
  return static_cast<std::int64_t>(std::clamp(share, 0.0, 1.0) * 100);
}

// All batteries by one of their measures, or nothing when one of them lacks it.
std::optional<std::int64_t> chargeBy(const std::vector<Battery>& batteries,
                                     std::optional<Fill> Battery::*measure) {
  Fill sum;
  for (const Battery& battery : batteries) {
    if (!(battery.*measure)) {
      return std::nullopt;
    }
    sum.now += (battery.*measure)->now;
    sum.full += (battery.*measure)->full;
  }
  return batteries.empty() ? std::nullopt : std::optional(asPercent(sum.now / sum.full));
}

std::optional<std::int64_t> meanCapacity(const std::vector<Battery>& batteries) {
  std::int64_t sum = 0;
  std::int64_t known = 0;
  for (const Battery& battery : batteries) {
    sum += std::clamp<std::int64_t>(battery.capacity.value_or(0), 0, 100);
    known += battery.capacity ? 1 : 0;
  }
  return known > 0 ? std::optional(sum / known) : std::nullopt;
}

// The charge of all batteries together. A single one is shown as its own capacity, the figure that
// every other program shows too; several are weighed by their size where all of them tell it.
std::optional<std::int64_t> chargeOf(const std::vector<Battery>& batteries) {
  if (batteries.size() == 1 && batteries.front().capacity) {
    return batteries.front().capacity;
  }
  if (const auto byEnergy = chargeBy(batteries, &Battery::energy)) {
    return byEnergy;
  }
  const auto byCharge = chargeBy(batteries, &Battery::charge);
  return byCharge ? byCharge : meanCapacity(batteries);
}

// ---- routes

// From <linux/route.h>, which cannot be included beside <net/route.h>.
constexpr std::uint32_t routeIsUp = 0x0001;
constexpr std::uint32_t routeRejects = 0x0200;

std::optional<std::uint32_t> hexadecimal(std::string_view text) {
  std::uint32_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, 16);
  return error == std::errc() && end == text.data() + text.size() ? std::optional(value)
                                                                  : std::nullopt;
}

bool isZero(std::string_view digits) {
  return !digits.empty() && digits.find_first_not_of('0') == std::string_view::npos;
}

bool leadsOut(std::string_view interfaceName, std::string_view flagsText) {
  const auto flags = hexadecimal(flagsText);
  // A row that discards what it matches names no interface: "*" for IPv4, "lo" for IPv6.
  return flags && (*flags & routeIsUp) != 0 && (*flags & routeRejects) == 0 &&
         interfaceName != "lo" && interfaceName != "*";
}

// interface destination gateway flags refcnt use metric mask ...
bool isDefaultIPv4(std::string_view row) {
  const auto fields = splitFields(row);
  return fields.size() >= 8 && isZero(fields[1]) && isZero(fields[7]) &&
         leadsOut(fields[0], fields[3]);
}

// destination prefix-length source prefix-length next-hop metric refcnt use flags interface
bool isDefaultIPv6(std::string_view row) {
  const auto fields = splitFields(row);
  return fields.size() >= 10 && isZero(fields[0]) && isZero(fields[1]) &&
         leadsOut(fields[9], fields[8]);
}

}  // namespace

PowerReading powerReadingOf(const std::vector<SupplyAttributes>& supplies) {
  std::vector<Battery> batteries;
  bool hasMains = false;
  bool onMains = false;
  for (const SupplyAttributes& supply : supplies) {
    const auto type = attribute(supply, "type");
    if (!type || attribute(supply, "scope") == "Device") {  // a mouse's or a headset's battery
      continue;
    }
    if (*type != "Battery") {
      hasMains = true;
      onMains = onMains || number(supply, "online").value_or(0) > 0;
    } else if (number(supply, "present") != 0) {
      batteries.push_back(readBattery(supply));
    }
  }
  // What has no battery and yet runs needs no supply that tells of it.
  const bool needsMains = batteries.empty() && !hasMains;
  return {.source = onMains || needsMains ? PowerSource::ac
                    : batteries.empty()   ? PowerSource::unknown
                                          : PowerSource::battery,
          .batteryPercent = chargeOf(batteries)};
}

PowerReading readPowerSupplies(const fs::path& classFolder) {
  std::vector<SupplyAttributes> supplies;
  std::error_code ended;
  fs::directory_iterator entry(classFolder, ended);
  if (ended) {
    return {};
  }
  for (const fs::directory_iterator end; !ended && entry != end; entry.increment(ended)) {
    supplies.emplace_back(
        [supply = entry->path()](const char* name) { return readSmallFile(supply / name); });
  }
  return powerReadingOf(supplies);
}

bool hasDefaultRouteIPv4(std::string_view table) {
  const auto rows = splitLines(table);
  return std::any_of(rows.begin(), rows.end(), isDefaultIPv4);
}

bool hasDefaultRouteIPv6(std::string_view table) {
  const auto rows = splitLines(table);
  return std::any_of(rows.begin(), rows.end(), isDefaultIPv6);
}

std::optional<bool> readDefaultRoute(const fs::path& procNet) {
  const auto ipv4 = readSmallFile(procNet / "route");
  const auto ipv6 = readSmallFile(procNet / "ipv6_route");
  if (!ipv4 && !ipv6) {
    return std::nullopt;
  }
  return (ipv4 && hasDefaultRouteIPv4(*ipv4)) || (ipv6 && hasDefaultRouteIPv6(*ipv6));
}

LinuxSystemSnapshotProvider::LinuxSystemSnapshotProvider(LidReading lidClosed, fs::path root)
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
