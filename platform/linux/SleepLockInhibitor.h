#pragma once

#include <platform/linux/Logind.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace nodo {

/// nodo's lock, as logind is asked for it and as logind lists it.
namespace sleep_lock_inhibitor {

inline constexpr char what[] = "sleep:idle:handle-lid-switch";
inline constexpr char who[] = "nodo";
inline constexpr char why[] = "coding agents are working";
inline constexpr char mode[] = "block";

}  // namespace sleep_lock_inhibitor

/// Whether `inhibitor` says that it is nodo's and blocks both sleep and the lid switch. Anybody can
/// take one that does, so this alone decides nothing: see whose it is.
bool looksLikeSleepLock(const Inhibitor& inhibitor);

/// The process that holds nodo's lock, if one does: of root's, or of `ownUser`'s, whose daemon may
/// be on a session bus.
std::optional<std::int64_t> sleepLockHolder(const std::vector<Inhibitor>& inhibitors,
                                            std::uint32_t ownUser);

}  // namespace nodo
