#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/base/RE2Text.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/sensing/SystemSnapshot.h>

#include <string>
#include <tuple>
#include <utility>

namespace nodo {

NODO_JSON_RECORD(HotZone, fields, zone) {
  fields.required("name", zone.name);
  fields.required("celsius", zone.celsius);
  fields.required("limitCelsius", zone.limitCelsius);
}

NODO_JSON_RECORD(SystemSnapshot, fields, snapshot) {
  fields.required("now", snapshot.now);
  fields.required("powerSource", snapshot.powerSource);
  fields.optional("batteryPercent", snapshot.batteryPercent);
  fields.optional("defaultRouteAvailable", snapshot.defaultRouteAvailable);
  fields.optional("lidClosed", snapshot.lidClosed);
  fields.optional("thermalPressure", snapshot.thermalPressure);
  fields.optional("hotZone", snapshot.hotZone);
  fields.optional("lowPowerMode", snapshot.lowPowerMode);
}

bool SystemSnapshot::operator==(const SystemSnapshot& other) const {
  const auto compared = [](const SystemSnapshot& of) {
    return std::tie(of.now, of.powerSource, of.batteryPercent, of.defaultRouteAvailable,
                    of.lidClosed, of.thermalPressure, of.lowPowerMode);
  };
  return compared(*this) == compared(other);
}

MacSystemSnapshotProvider::MacSystemSnapshotProvider(std::shared_ptr<const CommandRunning> runner,
                                                     StrainReading strain)
    : runner(std::move(runner)), strain_(std::move(strain)) {}

SystemSnapshot MacSystemSnapshotProvider::snapshot(Date now) const {
  const CommandOutput power = runner->run("/usr/bin/pmset", {"-g", "batt"});
  const CommandOutput route = runner->run("/sbin/route", {"-n", "get", "default"});
  const CommandOutput lid =
      runner->run("/usr/sbin/ioreg", {"-r", "-k", "AppleClamshellState", "-d", "4"});
  MachineStrain strain = strain_();
  return {.now = now,
          .powerSource = powerSource(power.standardOutput),
          .batteryPercent = batteryPercent(power.standardOutput),
          .defaultRouteAvailable = defaultRouteAvailable(route.standardOutput, route.exitCode),
          .lidClosed = lidClosed(lid.standardOutput),
          .thermalPressure = strain.thermalPressure,
          .hotZone = std::move(strain.hotZone),
          .lowPowerMode = strain.lowPowerMode};
}

PowerSource MacSystemSnapshotProvider::powerSource(std::string_view battOutput) {
  const std::string text = lowercased(battOutput);
  // Mains first: a text that named both would mean that the charger is in.
  if (contains(text, "'ac power'") || contains(text, "\"ac power\"")) {
    return PowerSource::ac;
  }
  if (contains(text, "'battery power'") || contains(text, "\"battery power\"")) {
    return PowerSource::battery;
  }
  return PowerSource::unknown;
}

std::optional<std::int64_t> MacSystemSnapshotProvider::batteryPercent(std::string_view battOutput) {
  static const RE2 pattern("([0-9]{1,3})%");
  std::string digits;
  if (!RE2::PartialMatch(re2Text(battOutput), pattern, &digits)) {
    return std::nullopt;
  }
  return integerFromText<std::int64_t>(digits);
}

std::optional<bool> MacSystemSnapshotProvider::defaultRouteAvailable(std::string_view routeOutput,
                                                                     std::int32_t exitCode) {
  if (exitCode != 0) {
    return false;
  }
  const std::string text = lowercased(routeOutput);
  // A tunnel's default route has an interface and no gateway.
  if (contains(text, "gateway:") || contains(text, "interface:")) {
    return true;
  }
  return std::nullopt;
}

std::optional<bool> MacSystemSnapshotProvider::lidClosed(std::string_view ioregOutput) {
  for (const std::string_view line : splitAtLineFeeds(ioregOutput)) {
    const std::string text = lowercased(line);
    if (!contains(text, "appleclamshellstate")) {
      continue;
    }
    if (contains(text, "yes")) {
      return true;
    }
    if (contains(text, "no")) {
      return false;
    }
  }
  return std::nullopt;
}

}  // namespace nodo
