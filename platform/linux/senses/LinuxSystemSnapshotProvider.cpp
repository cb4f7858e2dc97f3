#include <NODOCore/base/Files.h>
#include <NODOCore/base/Text.h>
#include <platform/linux/senses/LinuxSystemSnapshotProvider.h>

#include <algorithm>
#include <charconv>
#include <cmath>
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

DeviceAttributes attributesBelow(const fs::path& device) {
  return [device](const char* name) { return readSmallFile(device / name); };
}

std::optional<std::string> attribute(const DeviceAttributes& device, const char* name) {
  const auto content = device(name);
  return content ? std::optional(std::string(trimmed(*content))) : std::nullopt;
}

std::optional<std::int64_t> number(const DeviceAttributes& device, const char* name) {
  const auto text = attribute(device, name);
  return text ? integerFromText<std::int64_t>(*text) : std::nullopt;
}

// ---- power supplies

struct Fill {
  double now = 0;
  double full = 0;
};

struct Battery {
  std::optional<Fill> energy;  // in µWh
  std::optional<Fill> charge;  // in µAh
  std::optional<std::int64_t> capacity;
};

std::optional<Fill> fill(const DeviceAttributes& supply, const char* nowName,
                         const char* fullName) {
  const auto now = number(supply, nowName);
  const auto full = number(supply, fullName);
  if (!now || !full || *full <= 0) {
    return std::nullopt;
  }
  return Fill{.now = static_cast<double>(*now), .full = static_cast<double>(*full)};
}

Battery readBattery(const DeviceAttributes& supply) {
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

// ---- heat, in thousandths of a degree Celsius

constexpr std::int64_t degree = 1000;
constexpr std::int64_t criticalMargin = 5 * degree;
constexpr std::int64_t seriousMargin = 10 * degree;
constexpr std::int64_t hottestPossible = 150 * degree;  // no laptop's silicon lives beyond
constexpr std::int64_t lowestTripPoint = 45 * degree;
constexpr int mostTripPoints = 64;  // more than any driver has

bool isPossible(std::int64_t temperature) {
  return temperature > 0 && temperature <= hottestPossible;
}

void lower(std::optional<std::int64_t>& limit, std::int64_t other) {
  limit = std::min(limit.value_or(other), other);
}

MachineStrain strainBeyond(ThermalPressure pressure, const std::string& name,
                           std::int64_t temperature, std::int64_t limit) {
  return {
      .thermalPressure = pressure,
      .hotZone =
          HotZone{.name = name, .celsius = temperature / degree, .limitCelsius = limit / degree},
      .lowPowerMode = std::nullopt};
}

std::int64_t excess(const MachineStrain& strain) {
  return strain.hotZone ? strain.hotZone->celsius - strain.hotZone->limitCelsius : 0;
}

bool isWorse(const MachineStrain& one, const MachineStrain& other) {
  return one.thermalPressure != other.thermalPressure ? one.thermalPressure > other.thermalPressure
                                                      : excess(one) > excess(other);
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

PowerReading powerReadingOf(const std::vector<DeviceAttributes>& supplies) {
  std::vector<Battery> batteries;
  bool hasMains = false;
  bool onMains = false;
  for (const DeviceAttributes& supply : supplies) {
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
  std::vector<DeviceAttributes> supplies;
  std::error_code ended;
  fs::directory_iterator entry(classFolder, ended);
  if (ended) {
    return {};
  }
  for (const fs::directory_iterator end; !ended && entry != end; entry.increment(ended)) {
    supplies.push_back(attributesBelow(entry->path()));
  }
  return powerReadingOf(supplies);
}

std::optional<ThermalLimits> thermalLimitsOf(const DeviceAttributes& zone) {
  if (attribute(zone, "mode") == "disabled") {
    return std::nullopt;
  }
  std::optional<std::int64_t> hot;
  std::optional<std::int64_t> critical;
  for (int i = 0; i < mostTripPoints; ++i) {
    const std::string point = "trip_point_" + std::to_string(i);
    const auto type = attribute(zone, (point + "_type").c_str());
    if (!type) {
      break;
    }
    if (*type != "hot" && *type != "critical") {
      continue;
    }
    const auto temperature = number(zone, (point + "_temp").c_str());
    if (temperature && *temperature >= lowestTripPoint && *temperature <= hottestPossible) {
      lower(*type == "hot" ? hot : critical, *temperature);
    }
  }
  if (!hot && !critical) {
    return std::nullopt;
  }
  ThermalLimits limits{.name = repairedUTF8(attribute(zone, "type").value_or("")),
                       .seriousFrom = hot,
                       .criticalFrom = std::nullopt};
  if (critical) {
    limits.seriousFrom = hot.value_or(*critical - seriousMargin);
    limits.criticalFrom = *critical - criticalMargin;
  }
  return limits;
}

std::optional<MachineStrain> strainOf(const ThermalLimits& limits, std::int64_t temperature) {
  if (!isPossible(temperature)) {
    return std::nullopt;
  }
  if (limits.criticalFrom && temperature >= *limits.criticalFrom) {
    return strainBeyond(ThermalPressure::critical, limits.name, temperature, *limits.criticalFrom);
  }
  if (limits.seriousFrom && temperature >= *limits.seriousFrom) {
    return strainBeyond(ThermalPressure::serious, limits.name, temperature, *limits.seriousFrom);
  }
  return MachineStrain{.thermalPressure = ThermalPressure::nominal};
}

MachineStrain ThermalZones::read(Date now) {
  constexpr double limitsLast = 600;
  if (!foundAt_ || std::abs((now - *foundAt_).count()) >= limitsLast) {
    findZones();
    foundAt_ = now;
  }
  MachineStrain worst;
  for (const Zone& zone : zones_) {
    const auto temperature = number(zone.attributes, "temp");
    const auto strain = temperature ? strainOf(zone.limits, *temperature) : std::nullopt;
    if (strain && isWorse(*strain, worst)) {
      worst = *strain;
    }
  }
  return worst;
}

void ThermalZones::findZones() {
  zones_.clear();
  std::error_code ended;
  fs::directory_iterator entry(folder_, ended);
  for (const fs::directory_iterator end; !ended && entry != end; entry.increment(ended)) {
    // Beside the zones there are the devices that cool them.
    if (entry->path().filename().string().starts_with("thermal_zone")) {
      const DeviceAttributes attributes = attributesBelow(entry->path());
      if (auto limits = thermalLimitsOf(attributes)) {
        zones_.push_back({attributes, std::move(*limits)});
      }
    }
  }
}

std::optional<bool> readLowPowerMode(const fs::path& profile) {
  const auto content = readSmallFile(profile);
  return content ? std::optional(trimmed(*content) == "low-power") : std::nullopt;
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
    : lidClosed_(std::move(lidClosed)),
      root_(std::move(root)),
      thermalZones_(root_ / "sys/class/thermal") {}

SystemSnapshot LinuxSystemSnapshotProvider::snapshot(Date now) const {
  const PowerReading power = readPowerSupplies(root_ / "sys/class/power_supply");
  MachineStrain strain = thermalZones_.read(now);
  return {.now = now,
          .powerSource = power.source,
          .batteryPercent = power.batteryPercent,
          .defaultRouteAvailable = readDefaultRoute(root_ / "proc/net"),
          .lidClosed = lidClosed_(),
          .thermalPressure = strain.thermalPressure,
          .hotZone = std::move(strain.hotZone),
          .lowPowerMode = readLowPowerMode(root_ / "sys/firmware/acpi/platform_profile")};
}

}  // namespace nodo
