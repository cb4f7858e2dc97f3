#include <NODOCore/base/LocalTime.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/diagnostics/Headline.h>
#include <NODOCore/presentation/HistoryReport.h>
#include <programs/nodoctl/StateAccess.h>
#include <programs/nodoctl/commands/Commands.h>
#include <programs/nodoctl/commands/MenuDisplay.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <fmt/format.h>

namespace nodo::nodoctl {
namespace {

// What stands for what on the line of time.
struct Glyphs {
  std::string_view nothing;
  std::string_view held;
  std::string_view vetoed;
  std::string_view unknown = "?";
};

Glyphs glyphsFor(const TextStyle& style) {
  return style.utf8 ? Glyphs{"·", "█", "▒"} : Glyphs{".", "=", "x"};
}

// Draws a report in lines of a width.
class HistoryText {
 public:
  HistoryText(const HistoryReport& report, const TextStyle& style, int columns)
      : report_(report),
        style_(style),
        glyphs_(glyphsFor(style)),
        columns_(std::clamp(columns, fewestColumns, mostColumns)),
        cells_(static_cast<std::size_t>(columns_) - labelWidth) {}

  std::string text() && {
    addLine(summary());
    if (!report_.isEmpty()) {
      addTimeLine();
      addRequests();
      addOperations();
    }
    std::string text;
    for (const MenuLine& line : lines_) {
      text += tinted(line, style_) + "\n";
    }
    return text;
  }

 private:
  static constexpr int fewestColumns = 24;
  static constexpr int mostColumns = 160;
  static constexpr std::size_t labelWidth = 10;

  // ---- what it comes to

  std::string spanText() const { return "the last " + timeLeftText(report_.until - report_.since); }

  std::string summary() const {
    if (report_.isEmpty() && !report_.lockKnownSince) {
      return "Nothing happened in " + spanText() + ": no requests, and no sleep lock of nodo's.";
    }
    Seconds held(0);
    bool isAll = !report_.lockKnownSince;
    for (const HistoryPeriod& period : report_.lockPeriods) {
      const bool isKnown = period.ending != PeriodEnding::unknown;
      held += isKnown ? period.endedAt - period.startedAt : Seconds(0);
      isAll = isAll && isKnown;
    }
    const std::string length =
        report_.lockPeriods.empty()
            ? "did not hold its sleep lock"
            : (isAll ? "held its sleep lock for " : "held its sleep lock for at least ") +
                  timeLeftText(held);
    const std::string known = report_.lockKnownSince ? ", as far as is recorded (since " +
                                                           timeText(*report_.lockKnownSince) + ")"
                                                     : "";
    return "nodo " + length + " in " + spanText() + known + ".";
  }

  // ---- the line of time

  Date beginOfCell(std::size_t cell) const {
    return report_.since + (report_.until - report_.since) * static_cast<double>(cell) /
                               static_cast<double>(cells_);
  }

  std::size_t cellOf(Date date) const {
    const double share = (date - report_.since) / (report_.until - report_.since);
    const double cell = std::clamp(share, 0.0, 1.0) * static_cast<double>(cells_);
    return std::min(static_cast<std::size_t>(cell), cells_ - 1);
  }

  std::string requestBars() const {
    std::vector<std::int64_t> counts(cells_);
    for (const TriggerActivityBucket& bucket : report_.requestMinutes) {
      counts[cellOf(bucket.startedAt)] += bucket.count;
    }
    return shownText(sparkline(counts), style_);
  }

  // A glyph a cell; of a period that ended nobody knows when, only its begin is certain.
  std::string bar(const std::vector<HistoryPeriod>& periods, std::string_view glyph) const {
    std::vector<std::string_view> bar(cells_, glyphs_.nothing);
    if (report_.lockKnownSince) {
      std::fill_n(bar.begin(), cellOf(*report_.lockKnownSince), glyphs_.unknown);
    }
    for (const HistoryPeriod& period : periods) {
      const std::size_t first = cellOf(period.startedAt);
      for (std::size_t cell = first; cell <= cellOf(period.endedAt); ++cell) {
        const bool isKnown = cell == first || period.ending != PeriodEnding::unknown;
        if (isKnown || bar[cell] == glyphs_.nothing) {
          bar[cell] = isKnown ? glyph : glyphs_.unknown;
        }
      }
    }
    return fmt::format("{}", fmt::join(bar, ""));
  }

  // The times that belong to its cells, as many as there is room for.
  std::string scale() const {
    constexpr std::string_view now = "now";
    std::string scale = timeText(report_.since);
    const std::string middle = timeText(beginOfCell(cells_ / 2));
    if (scale.size() < cells_ / 2 && cells_ / 2 + middle.size() + now.size() < cells_) {
      scale.resize(cells_ / 2, ' ');
      scale += middle;
    }
    if (scale.size() + now.size() < cells_) {
      scale.resize(cells_ - now.size(), ' ');
      scale += now;
    }
    return scale;
  }

  void addTimeLine() {
    const auto addRow = [this](std::string_view label, const std::string& bar, Tint tint) {
      lines_.push_back({.text = fmt::format("{:<{}}{}", label, labelWidth, bar), .tint = tint});
    };
    const bool hasVetoes = !report_.vetoes.empty();
    lines_.emplace_back();
    addRow("Requests", requestBars(), Tint::plain);
    addRow("Lock", bar(report_.lockPeriods, glyphs_.held), Tint::good);
    if (hasVetoes) {
      addRow("Vetoes", bar(report_.vetoes, glyphs_.vetoed), Tint::bad);
    }
    addRow("", scale(), Tint::plain);
    const std::string bars = style_.utf8 ? "the higher, the more" : "1 is few, 8 is many";
    addLine(fmt::format(
                "Requests: {}. Lock: {} held, {} not held{}.{}", bars, glyphs_.held,
                glyphs_.nothing, hasUnknown() ? ", ? not recorded" : "",
                hasVetoes ? fmt::format(" Vetoes: {} a safety rule allowed sleep.", glyphs_.vetoed)
                          : ""),
            Tint::faint);
  }

  bool hasUnknown() const {
    const auto isUnknown = [](const HistoryPeriod& period) {
      return period.ending == PeriodEnding::unknown;
    };
    return report_.lockKnownSince ||
           std::any_of(report_.lockPeriods.begin(), report_.lockPeriods.end(), isUnknown) ||
           std::any_of(report_.vetoes.begin(), report_.vetoes.end(), isUnknown);
  }

  // ---- the lists

  void addRequests() {
    addHeading("Requests");
    if (report_.requestsListedSince) {
      addLine("  before " + timeText(*report_.requestsListedSince) + ": not recorded one by one");
    }
    if (report_.requests.empty()) {
      addLine("  none by name");
    }
    for (const RequestGroup& group : report_.requests) {
      const std::string first = timeText(group.firstAt);
      const std::string last = timeText(group.lastAt);
      addLine(fmt::format("  {}{}  {}{}{}{}", first, first == last ? "" : " to " + last, group.name,
                          group.context ? " - " : "", group.context.value_or(""),
                          group.count == 1 ? "" : fmt::format(" ({} times)", group.count)));
    }
  }

  void addOperations() {
    addHeading("Sleep lock");
    if (report_.lockKnownSince) {
      addLine("  before " + timeText(*report_.lockKnownSince) + ": not recorded");
    }
    if (report_.operations.empty()) {
      addLine("  not switched");
    }
    for (const PowerOperationAudit& operation : report_.operations) {
      const bool isBad = !succeeded(operation) && !operation.dryRun;
      addLine("  " + timeText(operation.occurredAt) + "  " + whatWasDone(operation) + ": " +
                  whyItWasDone(operation),
              isBad ? Tint::bad : Tint::plain);
    }
  }

  static std::string whatWasDone(const PowerOperationAudit& operation) {
    std::string_view done;
    std::string_view tried;
    switch (operation.action) {
      case PowerOperationAction::disableSleep:
        done = "taken";
        tried = "taking it";
        break;
      case PowerOperationAction::enableSleep:
        done = "released";
        tried = "releasing it";
        break;
      case PowerOperationAction::sleepNow:
        done = "asked for sleep";
        tried = "asking for sleep";
        break;
    }
    if (operation.dryRun) {
      return std::string(done) + ", only simulated";
    }
    return succeeded(operation)
               ? std::string(done)
               : fmt::format(
                     "{} FAILED{}", tried,
                     operation.exitCode ? fmt::format(" (exit {})", *operation.exitCode) : "");
  }

  // In plain words, and behind them as it is recorded.
  static std::string whyItWasDone(const PowerOperationAudit& operation) {
    if (!operation.reason) {
      return "no reason is recorded";
    }
    std::string_view word = *operation.reason;
    for (const std::string_view prefix : {reason::enablePrefix, reason::releasePrefix}) {
      word.remove_prefix(word.starts_with(prefix) ? prefix.size() : 0);
    }
    const std::string plain = explained(word);
    return plain == word ? *operation.reason : plain + " (" + *operation.reason + ")";
  }

  // ---- what all of it is made of

  // As the clock shows it, with the day where one day is not enough.
  std::string timeText(Date date) const {
    constexpr std::size_t day = 5;  // behind the year
    constexpr std::size_t clock = 11;
    constexpr std::size_t seconds = 16;
    const bool isOneDay = report_.until - report_.since < std::chrono::hours(24);
    const std::string text = localTimeText(date);
    return text.substr(isOneDay ? clock : day, seconds - (isOneDay ? clock : day));
  }

  void addHeading(const std::string& heading) {
    lines_.emplace_back();
    addLine(heading + ":");
  }

  // What does not fit goes on below, further to the right.
  void addLine(const std::string& text, Tint tint = Tint::plain) {
    constexpr int indent = 4;
    const std::vector<MenuLine> parts =
        wrapped({{.text = shownText(text, style_), .tint = tint}}, columns_ - indent);
    for (std::size_t index = 0; index < parts.size(); ++index) {
      lines_.push_back(
          {.text = std::string(index == 0 ? 0 : indent, ' ') + parts[index].text, .tint = tint});
    }
  }

  const HistoryReport& report_;
  TextStyle style_;
  Glyphs glyphs_;
  int columns_;
  std::size_t cells_;
  std::vector<MenuLine> lines_;
};

}  // namespace

Answer perform(const HistoryCommand& command, const ToolContext& context) {
  const SourcedStatus status = stateAccess(command.daemon, context).status();
  const Date now = context.now();
  const HistoryReport report(status.report, status.source,
                             now - std::chrono::minutes(command.minutes), now);
  if (command.json) {
    return {.output = jsonDocument(report)};
  }
  const bool isTerminal = context.terminal && context.terminal->isTerminal();
  const int columns = columnsOfLine(
      context.environment,
      context.terminal ? std::optional(context.terminal->size().columns) : std::nullopt);
  const bool isLocal = status.source == DoctorStatusSource::local;
  return {.output =
              (isLocal ? "Your own state, which switches no sleep lock:\n" : "") +
              HistoryText(report, textStyle(context.environment, isTerminal), columns).text()};
}

}  // namespace nodo::nodoctl
