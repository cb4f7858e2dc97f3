#include <platform/linux/SleepLockInhibitor.h>

#include <algorithm>

namespace nodo {

bool looksLikeSleepLock(const Inhibitor& inhibitor) {
  return inhibitor.who == sleep_lock_inhibitor::who &&
         inhibitor.mode == sleep_lock_inhibitor::mode && holdsUp(inhibitor.what, "sleep") &&
         holdsUp(inhibitor.what, "handle-lid-switch");
}

std::optional<std::int64_t> sleepLockHolder(const std::vector<Inhibitor>& inhibitors,
                                            std::uint32_t ownUser) {
  constexpr std::uint32_t root = 0;
  const auto lock =
      std::find_if(inhibitors.begin(), inhibitors.end(), [ownUser](const Inhibitor& inhibitor) {
        return (inhibitor.uid == root || inhibitor.uid == ownUser) && looksLikeSleepLock(inhibitor);
      });
  return lock != inhibitors.end() ? std::optional<std::int64_t>(lock->pid) : std::nullopt;
}

}  // namespace nodo
