#include <NODOCore/base/Text.h>
#include <platform/linux/PowerSupplies.h>
#include <platform/linux/SmallFile.h>

#include <algorithm>
#include <string>
#include <system_error>
#include <vector>

namespace nodo {
namespace {

namespace fs = std::filesystem;

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
std::optional<std::int64_t> together(const std::vector<Battery>& batteries,
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
  if (const auto byEnergy = together(batteries, &Battery::energy)) {
    return byEnergy;
  }
  const auto byCharge = together(batteries, &Battery::charge);
  return byCharge ? byCharge : meanCapacity(batteries);
}

}  // namespace

PowerReading powerReadingOf(const std::vector<SupplyAttributes>& supplies) {
  std::vector<Battery> batteries;
  bool onMains = false;
  for (const SupplyAttributes& supply : supplies) {
    const auto type = attribute(supply, "type");
    if (!type || attribute(supply, "scope") == "Device") {  // a mouse's or a headset's battery
      continue;
    }
    if (*type != "Battery") {
      onMains = onMains || number(supply, "online").value_or(0) > 0;
    } else if (number(supply, "present") != 0) {
      batteries.push_back(readBattery(supply));
    }
  }
  return {.source = onMains             ? PowerSource::ac
                    : batteries.empty() ? PowerSource::unknown
                                        : PowerSource::battery,
          .batteryPercent = chargeOf(batteries)};
}

PowerReading readPowerSupplies(const fs::path& classFolder) {
  std::vector<SupplyAttributes> supplies;
  std::error_code ended;
  for (fs::directory_iterator entry(classFolder, ended), end; !ended && entry != end;
       entry.increment(ended)) {
    supplies.emplace_back(
        [supply = entry->path()](const char* name) { return readSmallFile(supply / name); });
  }
  return powerReadingOf(supplies);
}

}  // namespace nodo
