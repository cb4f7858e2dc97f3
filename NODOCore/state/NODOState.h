#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/power/PowerManaging.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace nodo {

class JSONReader;
class JSONWriter;
struct SystemSnapshot;

/// Who asked to keep the machine awake, and when.
///
/// The texts come from outside (an agent's hook, a command line), so they are normalised: line
/// feeds, carriage returns and tabs become blanks, white space around is trimmed, invalid UTF-8
/// becomes U+FFFD, and what is longer than 120 characters is cut to 117 and "...".
struct ActivationRequester {
  std::string name = "Unknown";  ///< never empty
  std::optional<std::string>
      context;                       ///< usually the project's folder and a part of a session's id
  std::optional<std::string> event;  ///< the agent's name for the hook event
  Date requestedAt;

  ActivationRequester() = default;

  /// Normalises the texts: an empty name becomes "Unknown", an empty context or event absent.
  ActivationRequester(const std::string& name, const std::optional<std::string>& context,
                      const std::optional<std::string>& event, Date requestedAt);

  /// A normalised copy for another time.
  ActivationRequester requested(Date at) const;

  /// "name" or "name - context".
  std::string displayText() const;

  /// `displayText` in at most `maxLength` characters, with "..." at its end where it was cut (below
  /// four characters there is no room for that).
  std::string shortDisplayText(std::size_t maxLength) const;

  bool operator==(const ActivationRequester&) const = default;
};

void encode(JSONWriter& to, const ActivationRequester& requester);
void decode(const JSONReader& from, ActivationRequester& requester);

/// How many keep-awake requests one minute saw.
struct TriggerActivityBucket {
  Date startedAt;  ///< a whole multiple of 60 seconds since 1970-01-01 UTC
  std::int64_t count = 0;

  bool operator==(const TriggerActivityBucket&) const = default;
};

void encode(JSONWriter& to, const TriggerActivityBucket& bucket);
void decode(const JSONReader& from, TriggerActivityBucket& bucket);

/// One power operation as it is kept in the state: when and why, without the tool's output.
struct PowerOperationAudit {
  PowerOperationAction action = PowerOperationAction::enableSleep;
  Date occurredAt;
  std::optional<std::string> reason;     ///< e.g. "enable:manual_timer"
  bool dryRun = false;                   ///< the operation was only simulated
  std::optional<std::int32_t> exitCode;  ///< absent when no command ran
  std::optional<std::string> command;    ///< the command line

  PowerOperationAudit() = default;
  PowerOperationAudit(const PowerOperationResult& operation, Date occurredAt,
                      std::optional<std::string> reason);
  PowerOperationAudit(PowerOperationAction action, Date occurredAt,
                      std::optional<std::string> reason, bool dryRun,
                      std::optional<std::int32_t> exitCode, std::optional<std::string> command);

  bool operator==(const PowerOperationAudit&) const = default;
};

void encode(JSONWriter& to, const PowerOperationAudit& audit);
void decode(const JSONReader& from, PowerOperationAudit& audit);

/// The one persistent record: whether a timer keeps the machine awake and until when, whether nodo
/// itself holds the machine's sleep lock, who asked, what was done, and what the safety rules have
/// to remember between passes.
///
/// A plain value: loaded by the StateStore, changed by the controller, written back whole. All
/// functions are pure but for this value.
struct NODOState {
  std::optional<Date> manualUntil;  ///< end of the timer; absent when none was set
  bool ownsSleepDisable = false;    ///< nodo switched the lock on, and has to switch it off
  std::optional<std::string> lastActivationReason;
  std::optional<std::string> lastStopReason;
  std::optional<ActivationRequester> lastRequester;
  std::vector<ActivationRequester> recentRequesters;          ///< distinct, newest first
  std::vector<ActivationRequester> triggerHistory;            ///< every request, oldest first
  std::vector<TriggerActivityBucket> triggerActivityBuckets;  ///< requests a minute, last 12 hours
  std::optional<PowerOperationAudit> lastPowerOperation;
  std::vector<PowerOperationAudit> powerOperationHistory;  ///< oldest first
  std::optional<Date> noRouteUnavailableSince;  ///< first seen missing while the timer ran
  std::optional<Date> lidOpenedAt;              ///< when the lid was seen going from closed to open
  std::optional<bool> lastLidClosed;            ///< the lid at the last snapshot; absent: unknown
  Date createdAt;
  Date updatedAt;
  /// First seen seriously hot with the lid closed while the timer ran.
  std::optional<Date> seriousHeatSince;

  /// An empty record made at `now`.
  static NODOState fresh(Date now);

  // ---- what is left of the timer and the graces, in whole seconds (rounded down, never negative)

  /// Of the timer; absent when there is none.
  std::optional<std::int64_t> manualRemainingSeconds(Date at) const;

  /// Whether at least one whole second of the timer is left.
  bool manualIsActive(Date at) const;

  /// Until a missing route ends keeping awake; absent without a running timer or an outage.
  std::optional<std::int64_t> noRouteGraceRemainingSeconds(Date at,
                                                           std::int64_t graceSeconds) const;

  /// Until the heat that `snapshot` tells of, at its time, ends keeping awake; absent where it is
  /// not the heat of a closed machine with a running timer, or was not noted.
  std::optional<std::int64_t> heatGraceRemainingSeconds(const SystemSnapshot& snapshot,
                                                        std::int64_t graceSeconds) const;

  /// Of the grace after the lid was opened; absent when it was not.
  std::optional<std::int64_t> lidOpenGraceRemainingSeconds(Date at,
                                                           std::int64_t graceSeconds) const;

  /// Whether at least one whole second of that grace is left.
  bool isWithinLidOpenGrace(Date at, std::int64_t graceSeconds) const;

  // ---- trackers

  /// Notes when the lid goes from closed to open. A lid that was open when tracking began, or came
  /// out of an unknown state, starts no grace.
  void syncLidOpenGrace(const SystemSnapshot& snapshot);

  /// Notes when the default route went missing while the timer ran, and forgets it when the route
  /// is back (or unknown) or the timer is over.
  void updateNoRouteTracking(const SystemSnapshot& snapshot);

  /// Notes when the machine became seriously hot with its lid closed while the timer ran, and
  /// forgets it when one of these is over.
  void updateHeatTracking(const SystemSnapshot& snapshot);

  /// All of these, in this order.
  void syncSnapshotTracking(const SystemSnapshot& snapshot);

  // ---- histories

  /// Records that `requester` asked at `at`: as the last requester, first among at most
  /// `maxRecentCount` distinct ones, last of at most `maxTriggerHistoryCount` requests of the last
  /// 12 hours, and in its minute's bucket.
  void recordRequester(const ActivationRequester& requester, Date at, std::size_t maxRecentCount,
                       std::size_t maxTriggerHistoryCount);

  /// Records what was done to the machine and why, keeping the last `maxHistoryCount` operations.
  void recordPowerOperation(const PowerOperationResult& operation, Date at,
                            const std::string& reason, std::size_t maxHistoryCount);

  /// The requests of the 12 hours before `now` counted by minute. Without `now` the latest
  /// request's time counts, or the current time when there is none.
  static std::vector<TriggerActivityBucket> makeTriggerActivityBuckets(
      const std::vector<ActivationRequester>& from, std::optional<Date> now);

  /// Buckets as a file holds them, put in order: empty ones dropped, each minute once, oldest
  /// first, the newest 720 kept (the minutes of 12 hours).
  static std::vector<TriggerActivityBucket> normalisedBuckets(
      const std::vector<TriggerActivityBucket>& stored);

  bool operator==(const NODOState&) const = default;
};

void encode(JSONWriter& to, const NODOState& state);

/// Forgiving, so that a file of an older version still loads: every key may be missing. A key of
/// the wrong type is an error.
void decode(const JSONReader& from, NODOState& state);

}  // namespace nodo
