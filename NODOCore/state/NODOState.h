#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/state/ActivationRequester.h>
#include <NODOCore/state/PowerOperationAudit.h>
#include <NODOCore/state/TriggerActivityBucket.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace nodo {

struct SystemSnapshot;

/// The one persistent record: whether a manual keep-awake period runs and until when, whether nodo
/// itself holds the machine's sleep lock, who asked, what was done, and what the safety rules have
/// to remember between runs.
///
/// A plain value: loaded by the StateStore, changed by the controller, written back whole. All
/// functions are pure but for this value.
struct NODOState {
  std::optional<Date> manualUntil;  ///< end of the manual period; absent when none was set
  bool ownsSleepDisable = false;    ///< nodo switched the lock on, and has to switch it off
  std::optional<std::string> lastActivationReason;
  std::optional<std::string> lastStopReason;
  std::optional<ActivationRequester> lastRequester;
  std::vector<ActivationRequester> recentRequesters;          ///< distinct, newest first
  std::vector<ActivationRequester> triggerHistory;            ///< every request, oldest first
  std::vector<TriggerActivityBucket> triggerActivityBuckets;  ///< requests a minute, last 12 hours
  std::optional<PowerOperationAudit> lastPowerOperation;
  std::vector<PowerOperationAudit> powerOperationHistory;  ///< oldest first
  std::optional<Date> noRouteUnavailableSince;  ///< first seen missing during the manual period
  std::optional<Date> lidOpenedAt;              ///< when the lid was seen going from closed to open
  std::optional<bool> lastLidClosed;            ///< the lid at the last snapshot; absent: unknown
  Date createdAt;
  Date updatedAt;

  /// An empty record made at `now`.
  static NODOState fresh(Date now);

  // ---- what is left of the periods, in whole seconds (rounded down, never negative)

  /// Of the manual period; absent when there is none.
  std::optional<std::int64_t> manualRemainingSeconds(Date at) const;

  /// Whether at least one whole second of the manual period is left.
  bool manualIsActive(Date at) const;

  /// Until a missing route ends keeping awake; absent without an active manual period or an outage.
  std::optional<std::int64_t> noRouteGraceRemainingSeconds(Date at,
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

  /// Notes when the default route went missing during a manual period, and forgets it when the
  /// route is back (or unknown) or the period is over.
  void updateNoRouteTracking(const SystemSnapshot& snapshot);

  /// Both, in this order.
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

JSONValue encode(const NODOState& state);

/// Forgiving, so that a file of an older version still loads: every key may be missing. A key of
/// the wrong type is an error.
void decode(const JSONReader& from, NODOState& state);

}  // namespace nodo
