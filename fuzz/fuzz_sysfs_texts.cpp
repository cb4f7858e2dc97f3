#include <NODOCore/base/Text.h>
#include <platform/linux/news/LidSwitches.h>
#include <platform/linux/senses/LinuxSystemSnapshotProvider.h>

#include <algorithm>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <fuzz/Fuzzing.h>

namespace nodo::fuzzing {
namespace {

using Files = std::map<std::string, std::string, std::less<>>;

DeviceAttributes attributesOf(Files files) {
  return [files = std::move(files)](const char* name) -> std::optional<std::string> {
    const auto file = files.find(std::string_view(name));
    return file == files.end() ? std::nullopt : std::optional(file->second);
  };
}

// A line "NAME=VALUE" for each attribute; a line without "=" begins the next supply.
std::vector<DeviceAttributes> suppliesOf(std::string_view text) {
  std::vector<DeviceAttributes> supplies;
  Files files;
  for (const std::string_view line : splitAtLineFeeds(text)) {
    const auto sign = line.find('=');
    if (sign == std::string_view::npos) {
      supplies.push_back(attributesOf(std::exchange(files, {})));
    } else {
      files[std::string(line.substr(0, sign))] = std::string(line.substr(sign + 1)) + "\n";
    }
  }
  supplies.push_back(attributesOf(files));
  return supplies;
}

void checkSupplies(std::vector<DeviceAttributes> supplies) {
  const PowerReading reading = powerReadingOf(supplies);
  require(reading.source != PowerSource::unknown || !reading.batteryPercent,
          "where there is a charge there is a battery");

  supplies.push_back(attributesOf({{"type", "Battery\n"}, {"scope", "Device\n"}}));
  supplies.push_back(attributesOf({{"type", "Battery\n"}, {"present", "0\n"}}));
  require(powerReadingOf(supplies) == reading, "a mouse's battery and an empty bay do not count");
  supplies.push_back(attributesOf({{"type", "Mains\n"}, {"online", "1\n"}}));
  std::rotate(supplies.rbegin(), supplies.rbegin() + 1, supplies.rend());
  require(powerReadingOf(supplies) ==
              PowerReading{.source = PowerSource::ac, .batteryPercent = reading.batteryPercent},
          "mains count whatever else there is");

  supplies.push_back(attributesOf({{"type", "Battery\n"}, {"capacity", "50\n"}}));
  supplies.push_back(attributesOf({{"type", "Battery\n"}, {"capacity", "50\n"}}));
  const auto together = powerReadingOf(supplies).batteryPercent;
  require(together && *together >= 0 && *together <= 100, "a charge of several is a percentage");
}

void checkHeat(const DeviceAttributes& zone) {
  const auto limits = thermalLimitsOf(zone);
  if (!limits) {
    return;
  }
  require(limits->seriousFrom || limits->criticalFrom, "limits are at least one");
  auto last = ThermalPressure::nominal;
  for (std::int64_t temperature = 500; temperature <= 150'000; temperature += 500) {
    const auto strain = strainOf(*limits, temperature);
    require(strain && strain->thermalPressure >= last, "more heat is no less pressure");
    require((strain->thermalPressure == ThermalPressure::nominal) == !strain->hotZone,
            "a pressure names its zone");
    last = *strain->thermalPressure;
  }
  const DeviceAttributes disabled = [&](const char* name) {
    return std::string_view(name) == "mode" ? std::optional<std::string>("disabled\n") : zone(name);
  };
  require(!thermalLimitsOf(disabled), "a disabled zone has no limits");
}

void checkLid(std::string_view text) {
  const bool hasLid = hasLidSwitch(text);
  require(hasLidSwitch(std::string(text) + "\n") == hasLid, "a line's end changes nothing");
  require(!hasLid || hasLidSwitch("ff " + std::string(text)), "words before the last do not count");
  require(hasLidSwitch(std::string(text) + " 1\n"), "the last word counts");
}

}  // namespace
}  // namespace nodo::fuzzing

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = nodo::fuzzing::textOf(data, size);
  const auto devices = nodo::fuzzing::suppliesOf(text);
  nodo::fuzzing::checkSupplies(devices);
  nodo::fuzzing::checkHeat(devices.front());
  nodo::fuzzing::checkLid(text);
  return 0;
}
