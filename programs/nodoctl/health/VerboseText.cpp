#include <NODOCore/base/Environment.h>
#include <NODOCore/base/Errors.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/state/StateStore.h>
#include <programs/nodoctl/ReportText.h>
#include <programs/nodoctl/health/VerboseText.h>

#include <fmt/format.h>

namespace nodo::nodoctl {
namespace {

std::string foreignHolders(const HealthFacts& facts) {
  std::string lines;
  for (const SleepBlocker& blocker : facts.diagnostics.blockers) {
    if (blocker.scope == SleepBlockerScope::systemSleep && blocker.pid != facts.lockHolder) {
      lines += fmt::format("- {} pid={}: {} ({})\n", escapedForDisplay(blocker.processName),
                           blocker.pid, escapedForDisplay(blocker.assertionName),
                           escapedForDisplay(blocker.assertionType));
    }
  }
  if (!lines.empty()) {
    return "Others that hold up sleep:\n" + lines;
  }
  const bool isKnown = facts.diagnostics.sleepDisabled.has_value();
  return fmt::format("Others that hold up sleep: {}\n", isKnown ? "none" : "unknown");
}

std::string statePath(const Environment& environment) {
  try {
    return StateStore::defaultStore(environment).stateURL().string();
  } catch (const NODOError& error) {
    return error.what();
  }
}

}  // namespace

std::string verboseText(const HealthFacts& facts, const Environment& environment) {
  std::string text = "\n" + foreignHolders(facts);
  text += machineText(facts.status.report);
  text += fmt::format("Own state:  {}\n", escapedForDisplay(statePath(environment)));
  text += fmt::format("Hook log:   {}\n", escapedForDisplay(facts.hookFallback.logPath));
  text += fmt::format("nodoctl:    version {}\n", version());
  return text;
}

}  // namespace nodo::nodoctl
