#include <platform/linux/LogindDiagnostics.h>
#include <platform/linux/SleepLockInhibitor.h>

#include <array>
#include <string_view>

#include <fmt/format.h>

namespace nodo {
namespace {

// The kinds of inhibition that logind knows.
constexpr std::array<std::string_view, 8> kinds{"sleep",
                                                "idle",
                                                "shutdown",
                                                "handle-lid-switch",
                                                "handle-power-key",
                                                "handle-suspend-key",
                                                "handle-hibernate-key",
                                                "handle-reboot-key"};

SleepBlocker blockerFrom(const Inhibitor& inhibitor) {
  const bool blocksSleep = inhibitor.mode == "block" &&
                           (holdsUp(inhibitor.what, "sleep") || holdsUp(inhibitor.what, "idle"));
  return {
      .pid = inhibitor.pid,
      .processName = inhibitor.who,
      .duration = "",
      .assertionType = inhibitor.what,
      .assertionName = inhibitor.why,
      .scope = blocksSleep ? SleepBlockerScope::systemSleep : SleepBlockerScope::other,
      .rawLine = fmt::format("pid {}({}): uid {} {} {} named: \"{}\"", inhibitor.pid, inhibitor.who,
                             inhibitor.uid, inhibitor.mode, inhibitor.what, inhibitor.why)};
}

}  // namespace

SleepDiagnosticsReport logindDiagnostics(const std::vector<Inhibitor>& inhibitors,
                                         const std::string& blockInhibited, std::uint32_t ownUser,
                                         Date generatedAt) {
  SleepDiagnosticsReport report;
  report.generatedAt = generatedAt;
  report.sleepDisabled = sleepLockHolder(inhibitors, ownUser).has_value();
  for (const std::string_view kind : kinds) {
    report.assertionStatuses.emplace(kind, holdsUp(blockInhibited, kind));
  }
  for (const Inhibitor& inhibitor : inhibitors) {
    report.blockers.push_back(blockerFrom(inhibitor));
  }
  return report;
}

}  // namespace nodo
