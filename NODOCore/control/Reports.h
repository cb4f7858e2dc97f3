#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/control/PowerDecision.h>
#include <NODOCore/power/PowerManaging.h>
#include <NODOCore/sensing/AgentDetector.h>
#include <NODOCore/sensing/SystemSnapshot.h>
#include <NODOCore/state/NODOState.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace nodo {

class JSONReader;
class JSONWriter;

/// The answer of every controller command: the state and the machine at one instant, and what
/// follows.
struct StatusReport {
  Date generatedAt;
  NODOState state;  ///< with the lid and route trackers already updated for this instant
  SystemSnapshot snapshot;
  std::vector<AgentProcess> agents;
  PowerDecision decision;
  std::optional<std::int64_t> manualRemainingSeconds;
  std::optional<std::int64_t> noRouteGraceRemainingSeconds;
  /// How long serious heat with the lid closed is tolerated yet; absent where it forbids nothing.
  std::optional<std::int64_t> heatGraceRemainingSeconds;

  bool operator==(const StatusReport&) const = default;
};

void encode(JSONWriter& to, const StatusReport& report);
void decode(const JSONReader& from, StatusReport& report);

/// The answer of the daemon's passes: `reconcile` and `repair`.
struct DaemonRunReport {
  Date generatedAt;
  StatusReport status;  ///< after the pass
  /// The switching of the lock, never a sleep request.
  std::optional<PowerOperationResult> operation;
  std::vector<PowerOperationResult> operations;  ///< all of the pass, in order
  bool stateChanged = false;                     ///< the pass changed what is stored

  bool operator==(const DaemonRunReport&) const = default;
};

void encode(JSONWriter& to, const DaemonRunReport& report);
void decode(const JSONReader& from, DaemonRunReport& report);

/// One block character for each count, its height relative to the largest; "·" for none. Pure.
std::string sparkline(const std::vector<std::int64_t>& counts);

/// The keep-awake requests of the last hours in a few time slots, for a menu. Pure.
struct TriggerActivitySummary {
  std::int64_t total = 0;             ///< requests in the span
  std::vector<std::int64_t> buckets;  ///< requests by time slot, oldest slot first
  std::int64_t hours = 1;             ///< the span, which ends at `now`

  /// Spreads the span's requests (both ends included) over `bucketCount` slots of equal width.
  /// `spanHours` and `bucketCount` below 1 are taken as 1.
  TriggerActivitySummary(const std::vector<ActivationRequester>& requesters, Date now,
                         std::int64_t spanHours, std::int64_t bucketCount);

  /// The same from minutes: one counts when it overlaps the span, in the slot that it begins in.
  TriggerActivitySummary(const std::vector<TriggerActivityBucket>& activityBuckets, Date now,
                         std::int64_t spanHours, std::int64_t bucketCount);

  /// E.g. "Triggers 12h  ··▂█  5".
  std::string menuLine() const;

  bool operator==(const TriggerActivitySummary&) const = default;
};

}  // namespace nodo
