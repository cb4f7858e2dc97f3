#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/control/Reports.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <string_view>

#include <fmt/format.h>

namespace nodo {

NODO_JSON_RECORD(StatusReport, fields, report) {
  fields.required("generatedAt", report.generatedAt);
  fields.required("state", report.state);
  fields.required("snapshot", report.snapshot);
  fields.required("agents", report.agents);
  fields.required("decision", report.decision);
  fields.optional("manualRemainingSeconds", report.manualRemainingSeconds);
  fields.optional("noRouteGraceRemainingSeconds", report.noRouteGraceRemainingSeconds);
  fields.optional("heatGraceRemainingSeconds", report.heatGraceRemainingSeconds);
}

NODO_JSON_RECORD(DaemonRunReport, fields, report) {
  fields.required("generatedAt", report.generatedAt);
  fields.required("status", report.status);
  fields.optional("operation", report.operation);
  fields.required("operations", report.operations);
  fields.required("stateChanged", report.stateChanged);
}

namespace {

constexpr std::array<std::string_view, 8> blocks{"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
constexpr std::string_view noBlock = "·";

// A span of time cut into slots of equal width.
class Slots {
 public:
  Slots(Date now, std::int64_t hours, std::int64_t count)
      : start_(now - Seconds(static_cast<double>(hours) * 3600)),
        width_(static_cast<double>(hours) * 3600 / static_cast<double>(count)),
        last_(count - 1) {}

  Date start() const { return start_; }

  std::size_t slotOf(Date time) const {
    const double slot = std::trunc((time - start_) / width_);
    return static_cast<std::size_t>(std::clamp(slot, 0.0, static_cast<double>(last_)));
  }

 private:
  Date start_;
  Seconds width_;
  std::int64_t last_;
};

void addSaturating(std::int64_t& sum, std::int64_t count) {
  if (__builtin_add_overflow(sum, count, &sum)) {
    sum = std::numeric_limits<std::int64_t>::max();
  }
}

std::string_view blockFor(std::int64_t count, std::int64_t largest) {
  if (count < 1) {
    return noBlock;
  }
  const double level = std::ceil(static_cast<double>(count) / static_cast<double>(largest) *
                                 static_cast<double>(blocks.size()));
  return blocks[static_cast<std::size_t>(std::clamp(level, 1.0, 8.0)) - 1];
}

}  // namespace

std::string sparkline(const std::vector<std::int64_t>& counts) {
  const auto largest = std::max_element(counts.begin(), counts.end());
  std::string line;
  for (const std::int64_t count : counts) {
    line += blockFor(count, *largest);
  }
  return line;
}

TriggerActivitySummary::TriggerActivitySummary(const std::vector<ActivationRequester>& requesters,
                                               Date now, std::int64_t spanHours,
                                               std::int64_t bucketCount)
    : buckets(static_cast<std::size_t>(std::max<std::int64_t>(bucketCount, 1))),
      hours(std::max<std::int64_t>(spanHours, 1)) {
  const Slots slots(now, hours, static_cast<std::int64_t>(buckets.size()));
  for (const ActivationRequester& requester : requesters) {
    if (requester.requestedAt >= slots.start() && requester.requestedAt <= now) {
      ++buckets[slots.slotOf(requester.requestedAt)];
      ++total;
    }
  }
}

TriggerActivitySummary::TriggerActivitySummary(
    const std::vector<TriggerActivityBucket>& activityBuckets, Date now, std::int64_t spanHours,
    std::int64_t bucketCount)
    : buckets(static_cast<std::size_t>(std::max<std::int64_t>(bucketCount, 1))),
      hours(std::max<std::int64_t>(spanHours, 1)) {
  const Slots slots(now, hours, static_cast<std::int64_t>(buckets.size()));
  for (const TriggerActivityBucket& bucket : activityBuckets) {
    if (bucket.startedAt + Seconds(60) > slots.start() && bucket.startedAt <= now) {
      addSaturating(buckets[slots.slotOf(bucket.startedAt)], bucket.count);
      addSaturating(total, bucket.count);
    }
  }
}

std::string TriggerActivitySummary::menuLine() const {
  return fmt::format("Triggers {}h  {}  {}", hours, sparkline(buckets), total);
}

}  // namespace nodo
