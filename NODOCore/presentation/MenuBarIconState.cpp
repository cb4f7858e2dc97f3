#include <NODOCore/presentation/MenuBarIconState.h>

namespace nodo {

MenuBarIconState menuBarIconState(const std::optional<StatusReport>& report,
                                  const std::optional<std::string>& errorMessage,
                                  bool hookFallbackActive, bool setupNeedsAttention) {
  if (!report) {
    return errorMessage ? MenuBarIconState::warning : MenuBarIconState::loading;
  }
  if (hookFallbackActive && !report->state.ownsSleepDisable) {
    return MenuBarIconState::warning;
  }
  if (report->decision.shouldPreventSleep) {
    return report->state.ownsSleepDisable ? MenuBarIconState::manualActive
                                          : MenuBarIconState::warning;
  }
  if (report->state.manualIsActive(report->generatedAt)) {
    return MenuBarIconState::manualActive;
  }
  return setupNeedsAttention ? MenuBarIconState::warning : MenuBarIconState::off;
}

}  // namespace nodo
