#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/base/TextEnum.h>
#include <NODOCore/control/Reports.h>
#include <NODOCore/diagnostics/DoctorReport.h>
#include <NODOCore/state/NODOState.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace nodo {

class JSONReader;
class JSONWriter;

/// Requests of one requester for the same thing, with none of others between.
struct RequestGroup {
  std::string name;
  std::optional<std::string> context;
  std::int64_t count = 0;
  Date firstAt;
  Date lastAt;

  bool operator==(const RequestGroup&) const = default;
};

/// What is known of a period's end.
enum class PeriodEnding {
  recorded,  ///< it is the end
  lasts,     ///< the period goes on, its end is that of the report
  unknown,   ///< it ended somewhere before
};

template <>
struct EnumTexts<PeriodEnding> {
  static constexpr std::array cases{EnumText{PeriodEnding::recorded, "recorded"},
                                    EnumText{PeriodEnding::lasts, "lasts"},
                                    EnumText{PeriodEnding::unknown, "unknown"}};
};

/// A time in which something held.
struct HistoryPeriod {
  Date startedAt;
  Date endedAt;  ///< not before `startedAt`
  PeriodEnding ending = PeriodEnding::recorded;
  std::optional<std::string> reason;  ///< of the operation that it began with, as audited

  bool operator==(const HistoryPeriod&) const = default;
};

/// When and why the computer was kept awake, as far as the state's histories tell; for programs
/// that draw it. Oldest first everywhere.
///
/// The histories are bounded: what an absent date below would name is known of the whole time.
struct HistoryReport {
  Date since;
  Date until;
  DoctorStatusSource statusSource = DoctorStatusSource::local;
  std::vector<TriggerActivityBucket> requestMinutes;  ///< all requests, counted by minute
  std::vector<RequestGroup> requests;                 ///< those that are listed one by one
  std::optional<Date> requestsListedSince;            ///< earlier ones are counted at most
  std::vector<HistoryPeriod> lockPeriods;             ///< in which nodo held the sleep lock
  /// In which a safety rule had made nodo release the lock: until it was taken again, or the timer
  /// was over.
  std::vector<HistoryPeriod> vetoes;
  std::optional<Date> lockKnownSince;           ///< before, nothing is known of lock and vetoes
  std::vector<PowerOperationAudit> operations;  ///< failed and simulated ones, too

  HistoryReport() = default;

  /// What the histories of `status` tell of the time from `since` to `until`, which is now. Pure.
  HistoryReport(const StatusReport& status, DoctorStatusSource source, Date since, Date until);

  /// Nothing at all has happened, as far as is known.
  bool isEmpty() const;

  bool operator==(const HistoryReport&) const = default;
};

void encode(JSONWriter& to, const RequestGroup& group);
void decode(const JSONReader& from, RequestGroup& group);
void encode(JSONWriter& to, const HistoryPeriod& period);
void decode(const JSONReader& from, HistoryPeriod& period);
void encode(JSONWriter& to, const HistoryReport& report);
void decode(const JSONReader& from, HistoryReport& report);

/// Whether the audited operation was really carried out, and with success.
bool succeeded(const PowerOperationAudit& operation);

}  // namespace nodo
