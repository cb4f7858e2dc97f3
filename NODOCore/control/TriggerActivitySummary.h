#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/state/ActivationRequester.h>
#include <NODOCore/state/TriggerActivityBucket.h>

#include <cstdint>
#include <string>
#include <vector>

namespace nodo {

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

  /// One block character for each slot, its height relative to the busiest one; "·" for none.
  std::string sparkline() const;

  /// E.g. "Triggers 12h  ··▂█  5".
  std::string menuLine() const;

  bool operator==(const TriggerActivitySummary&) const = default;
};

}  // namespace nodo
