#pragma once

#include <NODOCore/base/TextEnum.h>
#include <NODOCore/control/StatusReport.h>

#include <array>
#include <optional>
#include <string>

namespace nodo {

/// Which icon the menu bar shows.
enum class MenuBarIconState {
  loading,       ///< there is no report yet
  off,           ///< the machine may sleep and nothing needs attention
  warning,       ///< something is wrong or inconsistent
  manualActive,  ///< a timer keeps the machine awake, or is about to
};

template <>
struct EnumTexts<MenuBarIconState> {
  static constexpr std::array cases{EnumText{MenuBarIconState::loading, "loading"},
                                    EnumText{MenuBarIconState::off, "off"},
                                    EnumText{MenuBarIconState::warning, "warning"},
                                    EnumText{MenuBarIconState::manualActive, "manualActive"}};
};

/// The icon for the latest report. Pure.
///
/// `errorMessage` is the last error met while fetching a report; it counts only as long as there is
/// none. A timer that runs shows as active even while something keeps the lock off, and a setup
/// that needs attention shows only while nothing is kept awake.
MenuBarIconState menuBarIconState(const std::optional<StatusReport>& report,
                                  const std::optional<std::string>& errorMessage,
                                  bool hookFallbackActive, bool setupNeedsAttention);

}  // namespace nodo
