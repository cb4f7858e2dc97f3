#include <NODOCore/presentation/SetupMenu.h>

#include <fmt/format.h>

namespace nodo {

bool SetupMenuSignals::helperIsOperational() const {
  if (helperIsReady) {
    return true;
  }
  return helperNeedsUpdate && !helperNeedsRepair && !helperNeedsApproval && !helperNeedsInstall;
}

bool SetupMenuSignals::isSetupComplete() const {
  return helperIsOperational() && hooksAreReady && !hooksNeedUpdate;
}

namespace {

std::optional<std::string> helperLine(const SetupMenuSignals& signals) {
  if (signals.helperNeedsRepair) {
    return "Setup: repair helper";
  }
  if (signals.helperNeedsUpdate) {
    return "Helper update available";
  }
  if (signals.helperNeedsInstall) {
    return "Setup: install helper";
  }
  if (signals.helperNeedsApproval) {
    return "Setup: approve Login Items";
  }
  return std::nullopt;
}

std::optional<std::string> hooksLine(const SetupMenuSignals& signals) {
  if (signals.hooksNeedUpdate) {
    return "Hooks update available";
  }
  if (signals.hooksAreReady) {
    return std::nullopt;
  }
  if (signals.hooksPartialInstalled && signals.hooksPartialTotal.value_or(0) >= 1) {
    return fmt::format("Setup: hooks {}/{}", *signals.hooksPartialInstalled,
                       *signals.hooksPartialTotal);
  }
  if (signals.hooksFailed) {
    return "Setup: hooks failed";
  }
  if (signals.hooksNeedInstall) {
    return "Setup: install hooks";
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> SetupMenuPresentation::setupLine(const SetupMenuSignals& signals) {
  if (auto line = helperLine(signals)) {
    return line;
  }
  if (signals.powerLockPending) {
    return "Power lock: pending";
  }
  return hooksLine(signals);
}

bool SetupMenuPresentation::prefersExpandedSetup(const SetupMenuSignals& signals) {
  if (signals.remindersSuppressed) {
    return false;
  }
  return signals.isSetupIncomplete() || setupLine(signals).has_value();
}

std::optional<std::string> SetupMenuPresentation::setupIncompleteStatusTitle(
    const SetupMenuSignals& signals, bool wizardDismissed) {
  if (wizardDismissed && signals.isSetupIncomplete() && !signals.remindersSuppressed) {
    return "Setup incomplete";
  }
  return std::nullopt;
}

}  // namespace nodo
