#pragma once

#include <NODOCore/power/CommandRunning.h>
#include <NODOCore/sensing/SystemSnapshotProviding.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

namespace nodo {

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
