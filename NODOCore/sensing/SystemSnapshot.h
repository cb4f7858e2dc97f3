#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/base/TextEnum.h>
#include <NODOCore/power/CommandRunning.h>

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

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

  explicit StaticSystemSnapshotProvider(SystemSnapshot value) : value(value) {}

  /// `value`, dated `now`. Never fails.
  SystemSnapshot snapshot(Date now) const override {
    SystemSnapshot dated = value;
    dated.now = now;
    return dated;
  }
};

/// Reads the machine with `pmset -g batt`, `route -n get default` and `ioreg`, in this order.
class MacSystemSnapshotProvider : public SystemSnapshotProviding {
 public:
  std::shared_ptr<const CommandRunning> runner;

  explicit MacSystemSnapshotProvider(std::shared_ptr<const CommandRunning> runner);

  /// Throws the runner's error when a tool cannot be started; the later tools are not run then. A
  /// tool that prints nothing useful gives `unknown` or absent values.
  SystemSnapshot snapshot(Date now) const override;

  // What the tools' texts say. Pure; unexpected text gives `unknown` or nothing.
  static PowerSource powerSource(std::string_view battOutput);
  static std::optional<std::int64_t> batteryPercent(std::string_view battOutput);
  static std::optional<bool> defaultRouteAvailable(std::string_view routeOutput,
                                                   std::int32_t exitCode);
  static std::optional<bool> lidClosed(std::string_view ioregOutput);
};

}  // namespace nodo
