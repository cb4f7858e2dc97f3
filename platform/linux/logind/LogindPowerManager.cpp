#include <platform/linux/bus/BusConnection.h>
#include <platform/linux/logind/Logind.h>
#include <platform/linux/logind/LogindPowerManager.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include <unistd.h>

namespace nodo {
namespace {

bool isOurs(const Inhibitor& inhibitor) {
  return inhibitor.pid == static_cast<std::uint32_t>(::getpid()) && looksLikeSleepLock(inhibitor);
}

PowerOperationResult refusal(PowerOperationResult result, const BusRefusal& error) {
  result.exitCode = 1;
  result.standardError = error.what();
  return result;
}

}  // namespace

LogindPowerManager::LogindPowerManager()
    : logind_(twoSecondsTogether), lock_(sleepLockInhibitor({})) {}

void LogindPowerManager::setTerms(const LockTerms& terms) {
  Inhibitor lock = sleepLockInhibitor(terms);
  if (inhibitor_) {
    inhibitor_ = logind_.inhibit(lock);
  }
  lock_ = std::move(lock);
}

PowerOperationResult LogindPowerManager::setSleepDisabled(bool disabled) {
  return disabled ? take() : release();
}

PowerOperationResult LogindPowerManager::take() {
  PowerOperationResult result(true, false,
                              fmt::format("logind Inhibit(\"{}\", \"{}\", \"{}\", \"{}\")",
                                          lock_.what, lock_.who, lock_.why, lock_.mode),
                              0, "", "");
  try {
    // The old one, if any, is closed only after the new one stands: there is never a gap.
    inhibitor_ = logind_.inhibit(lock_);
    return result;
  } catch (const BusRefusal& error) {
    return refusal(std::move(result), error);
  }
}

PowerOperationResult LogindPowerManager::release() {
  const bool held = static_cast<bool>(inhibitor_);
  inhibitor_.reset();
  PowerOperationResult result(false, false, "close logind's inhibitor", 0, "", "");
  try {
    if (!isGoneFromList()) {
      result.exitCode = 1;
      result.standardError = "logind still lists the inhibitor";
    }
    return result;
  } catch (const BusError&) {
    if (!held) {
      throw;
    }
    return result;  // closed is released; nobody had to be asked for that
  }
}

PowerOperationResult LogindPowerManager::requestSleepNow() {
  PowerOperationResult result(false, false, "logind Suspend(false)", 0, "", "",
                              PowerOperationAction::sleepNow);
  try {
    if (inhibitor_) {
      inhibitor_.reset();
      // Our own lock must not be what logind refuses to sleep for.
      isGoneFromList();
    }
    logind_.suspend();
    return result;
  } catch (const BusRefusal& error) {
    return refusal(std::move(result), error);
  }
}

std::optional<bool> LogindPowerManager::isHeld() noexcept {
  try {
    return isListed();
  } catch (const std::exception&) {
    return std::nullopt;  // nobody who could tell
  }
}

bool LogindPowerManager::isListed() {
  const std::vector<Inhibitor> inhibitors = logind_.inhibitors();
  return std::any_of(inhibitors.begin(), inhibitors.end(), isOurs);
}

// logind looks at the closed descriptor only when it has nothing else to do, so the list can still
// hold the inhibitor for a moment.
bool LogindPowerManager::isGoneFromList() {
  const auto deadline = BusClock::now() + twoSecondsTogether.call;
  for (std::chrono::milliseconds pause(1); isListed(); pause *= 2) {
    if (BusClock::now() + pause > deadline) {
      return false;
    }
    std::this_thread::sleep_for(pause);
  }
  return true;
}

}  // namespace nodo
