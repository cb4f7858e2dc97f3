#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/base/TextEnum.h>
#include <NODOCore/power/CommandRunning.h>

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace nodo {

class JSONReader;
class JSONWriter;

/// Where the machine's power comes from.
enum class PowerSource { ac, battery, unknown };

template <>
struct EnumTexts<PowerSource> {
  static constexpr std::array cases{EnumText{PowerSource::ac, "ac"},
                                    EnumText{PowerSource::battery, "battery"},
                                    EnumText{PowerSource::unknown, "unknown"}};
};

/// How hot the machine is, as its system judges it; each level is hotter than the one before.
enum class ThermalPressure {
  nominal,
  fair,      ///< warm, and no reason to do anything
  serious,   ///< the machine slows down to stay below what harms it
  critical,  ///< it is about to save itself, by switching itself off at last
};

template <>
struct EnumTexts<ThermalPressure> {
  static constexpr std::array cases{EnumText{ThermalPressure::nominal, "nominal"},
                                    EnumText{ThermalPressure::fair, "fair"},
                                    EnumText{ThermalPressure::serious, "serious"},
                                    EnumText{ThermalPressure::critical, "critical"}};
};

/// The part of the machine that a thermal pressure follows from.
struct HotZone {
  std::string name;               ///< the system's, e.g. "x86_pkg_temp"
  std::int64_t celsius = 0;       ///< how hot it is, in whole degrees
  std::int64_t limitCelsius = 0;  ///< from where on that pressure holds

  bool operator==(const HotZone&) const = default;
};

void encode(JSONWriter& to, const HotZone& zone);
void decode(const JSONReader& from, HotZone& zone);

/// What a system tells of its own condition.
struct MachineStrain {
  std::optional<ThermalPressure> thermalPressure;
  std::optional<HotZone> hotZone;    ///< of a pressure above `fair`, where the system names one
  std::optional<bool> lowPowerMode;  ///< somebody wants the battery to last

  bool operator==(const MachineStrain&) const = default;
};

/// What the safety rules need to know of the machine, at one instant. Absent means "could not
/// tell", which never counts as danger.
struct SystemSnapshot {
  Date now;
  PowerSource powerSource = PowerSource::unknown;
  std::optional<std::int64_t> batteryPercent;  ///< charge as the system states it, not clamped
  std::optional<bool> defaultRouteAvailable;
  std::optional<bool> lidClosed;
  std::optional<ThermalPressure> thermalPressure;  ///< these three as of MachineStrain
  std::optional<HotZone> hotZone;
  std::optional<bool> lowPowerMode;

  /// All but `hotZone`: degrees change with each look, and only their level is news.
  bool operator==(const SystemSnapshot& other) const;
};

void encode(JSONWriter& to, const SystemSnapshot& snapshot);
void decode(const JSONReader& from, SystemSnapshot& snapshot);

/// Takes a snapshot of the machine.
///
/// Exists so that decisions can be tested without a machine in that condition. A call blocks until
/// everything is read. An implementation is used by one thread at a time.
class SystemSnapshotProviding {
 public:
  virtual ~SystemSnapshotProviding() = default;

  /// The machine's condition, dated `now`. Throws what the implementation documents.
  virtual SystemSnapshot snapshot(Date now) const = 0;
};

/// A machine whose condition never changes, for tests and previews.
class StaticSystemSnapshotProvider : public SystemSnapshotProviding {
 public:
  SystemSnapshot value;

  explicit StaticSystemSnapshotProvider(SystemSnapshot value) : value(std::move(value)) {}

  /// `value`, dated `now`. Never fails.
  SystemSnapshot snapshot(Date now) const override {
    SystemSnapshot dated = value;
    dated.now = now;
    return dated;
  }
};

/// Reads the machine with `pmset -g batt`, `route -n get default` and `ioreg`, in this order, and
/// then its strain.
class MacSystemSnapshotProvider : public SystemSnapshotProviding {
 public:
  /// No tool tells of the machine's strain in words that stay; the system does. Must not throw.
  using StrainReading = std::function<MachineStrain()>;

  std::shared_ptr<const CommandRunning> runner;

  /// Without `strain` nothing is known of it.
  explicit MacSystemSnapshotProvider(
      std::shared_ptr<const CommandRunning> runner,
      StrainReading strain = [] { return MachineStrain(); });

  /// Throws the runner's error when a tool cannot be started; the later tools are not run then. A
  /// tool that prints nothing useful gives `unknown` or absent values.
  SystemSnapshot snapshot(Date now) const override;

  // What the tools' texts say. Pure; unexpected text gives `unknown` or nothing.
  static PowerSource powerSource(std::string_view battOutput);
  static std::optional<std::int64_t> batteryPercent(std::string_view battOutput);
  static std::optional<bool> defaultRouteAvailable(std::string_view routeOutput,
                                                   std::int32_t exitCode);
  static std::optional<bool> lidClosed(std::string_view ioregOutput);

 private:
  StrainReading strain_;
};

}  // namespace nodo
