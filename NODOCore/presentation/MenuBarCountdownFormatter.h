#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/control/StatusReport.h>

#include <cstdint>
#include <optional>
#include <string>

namespace nodo {

/// The short countdown of the timer beside the menu bar's icon. Pure.
struct MenuBarCountdownFormatter {
  /// What is left of the report's timer at `at`; nothing when no whole second is.
  static std::optional<std::string> text(const std::optional<StatusReport>& report, Date at);

  /// "59s", "59m", "2h" or "2h5m": without the seconds from a minute upwards, and never in days. A
  /// negative number counts as 0.
  static std::string compactDuration(std::int64_t seconds);
};

}  // namespace nodo
