#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/base/Environment.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace nodo {

class JSONReader;
class JSONWriter;

/// What the hook log says about the hook script's fallback, which keeps the computer awake with its
/// lid open only.
struct AgentHookFallbackStatus {
  bool isActive = false;  ///< a fallback started and has neither run out nor been resolved
  std::string logPath;    ///< the log that was read
  std::optional<Date> lastStartedAt;
  std::int64_t fallbackSeconds = 600;  ///< how long the last one runs; 600 when there was none

  bool operator==(const AgentHookFallbackStatus&) const = default;
};

void encode(JSONWriter& to, const AgentHookFallbackStatus& status);
void decode(const JSONReader& from, AgentHookFallbackStatus& status);

/// What is left to do when the real sleep lock takes over from the hook script's fallback.
struct HookFallbackRecoveryPolicy {
  /// The minutes that an active fallback still has to run, rounded up; nothing for any other.
  static std::optional<std::int64_t> remainingMinutes(const AgentHookFallbackStatus& status,
                                                      Date now);
};

/// Reads the log of the hook script, and writes the one line that is not the script's.
///
/// The log lies where everybody may write, so its text is hostile: a line that makes no sense is
/// passed over, and no more than the end of the log is read. Its times are local times of the
/// process's time zone.
///
/// Stateless. Not safe while another thread changes the environment.
struct AgentHookLogInspector {
  static constexpr std::string_view fallbackStartedMarker = "fallback caffeinate started";
  static constexpr std::string_view fallbackResolvedMarker = "fallback resolved";
  static constexpr std::string_view activeMarker = "nodo active";
  static constexpr std::string_view defaultLogPath = "/tmp/nodo-agent-hook.log";
  static constexpr std::int64_t defaultFallbackSeconds = 600;
  static constexpr std::string_view timestampFormat = "yyyy-MM-dd HH:mm:ss";

  /// How much of a log is read: of a longer one its last 16 MiB, more than a hundred thousand
  /// lines. What stands there before the first end of a line may be cut, and counts as no line.
  static constexpr std::size_t mostBytesRead = std::size_t{16} * 1024 * 1024;

  /// Where `environment` (its NODO_HOOK_LOG) says that the log is.
  static std::string logPath(const Environment& environment);

  /// The status by the log at `logPath`, or where `environment` says when there is no path. A log
  /// that is missing, cannot be read, becomes shorter while it is read, is no regular file of this
  /// user's or root's or is reached over somebody else's symbolic link counts as empty.
  static AgentHookFallbackStatus recentFallbackStatus(const std::optional<std::string>& logPath,
                                                      Date now, const Environment& environment);

  /// The status by the text of a log: the last readable line of a fallback's start counts, unless
  /// the last line of a success or of a resolution carries the same time or a later one.
  static AgentHookFallbackStatus recentFallbackStatus(std::string_view logContents,
                                                      const std::string& logPath, Date now);

  /// Appends to the log (chosen as above) that the fallback is needed no more, and makes the log
  /// and its folder where they are missing, for this user alone. To a log that would not be read
  /// nothing is appended. Whatever fails, nothing is thrown.
  static void markFallbackResolved(const std::optional<std::string>& logPath,
                                   std::string_view reason, Date now,
                                   const Environment& environment) noexcept;

  /// What the doctor report has to say about the fallback, if anything. With a sleep lock of our
  /// own (`ownsSleepDisable`) it does no harm.
  static std::optional<std::string> doctorWarning(const AgentHookFallbackStatus& status,
                                                  bool ownsSleepDisable);
};

}  // namespace nodo
