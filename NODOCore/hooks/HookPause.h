#pragma once

#include <NODOCore/base/Date.h>

#include <cstdint>
#include <filesystem>
#include <optional>

/// A person's "not now" to the hooks of one user.
///
/// The hook script asks for nothing while its stamp, the time of its last request, is less than two
/// minutes old. So a stamp that lies ahead keeps it from asking until then, and the script needs to
/// know nothing of it: agents are held up no longer than by a throttled hook.
namespace nodo {

/// How long a pause can be: a day. A stamp that lies further ahead is none: the clock was set back.
inline constexpr std::int64_t mostPauseMinutes = 1440;

/// Until when the hooks of the user whose home that is are paused at `now`; nothing when they are
/// not, or when the stamp cannot be read. The last two minutes of a pause look like the time after
/// any request, and are not told.
std::optional<Date> hooksPausedUntil(const std::filesystem::path& home, Date now);

/// Keeps the hooks from asking until then, whatever held before. What is made belongs to the home's
/// owner. Throws std::system_error, with the path in its text.
void pauseHooks(const std::filesystem::path& home, Date until);

/// Keeps them from asking for as long as a request of theirs at `now` would, two minutes. A longer
/// pause stays. What is made belongs to the home's owner. Throws as above.
void throttleHooks(const std::filesystem::path& home, Date now);

/// Lets the hooks ask at the agents' next events. Throws std::system_error, with the path in its
/// text.
void resumeHooks(const std::filesystem::path& home);

}  // namespace nodo
