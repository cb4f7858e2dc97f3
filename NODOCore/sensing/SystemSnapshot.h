#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/base/TextEnum.h>

#include <array>
#include <cstdint>
#include <optional>

namespace nodo {

class JSONReader;
class JSONValue;

/// Where the machine's power comes from.
enum class PowerSource { ac, battery, unknown };

template <>
struct EnumTexts<PowerSource> {
  static constexpr std::array cases{EnumText{PowerSource::ac, "ac"},
                                    EnumText{PowerSource::battery, "battery"},
                                    EnumText{PowerSource::unknown, "unknown"}};
};

/// What the safety rules need to know of the machine, at one instant. Absent means "could not
/// tell", which never counts as danger.
struct SystemSnapshot {
  Date now;
  PowerSource powerSource = PowerSource::unknown;
  std::optional<std::int64_t> batteryPercent;  ///< charge as the system states it, not clamped
  std::optional<bool> defaultRouteAvailable;
  std::optional<bool> lidClosed;

  bool operator==(const SystemSnapshot&) const = default;
};

JSONValue encode(const SystemSnapshot& snapshot);
void decode(const JSONReader& from, SystemSnapshot& snapshot);

}  // namespace nodo
