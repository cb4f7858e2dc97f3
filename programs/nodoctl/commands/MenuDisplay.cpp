#include <NODOCore/base/LocalTime.h>
#include <NODOCore/base/Text.h>
#include <programs/nodoctl/commands/MenuDisplay.h>

#include <algorithm>
#include <array>
#include <exception>
#include <string_view>
#include <utility>

namespace nodo::nodoctl {
namespace {

struct Icon {
  std::string_view symbol;
  std::string_view asciiSymbol;
  Tint tint;
};

// Of the menu bar's icon, but that none of those that say "all is well" stands beside words that
// say the opposite.
Icon iconFor(const WatchView& view) {
  const HeadlineKind kind = view.headline.kind;
  const bool isBad = view.report.iconState == MenuBarIconState::warning ||
                     (kind != HeadlineKind::keptAwake && kind != HeadlineKind::off);
  if (isBad) {
    return {"▲", "!", Tint::bad};
  }
  return kind == HeadlineKind::keptAwake ? Icon{"●", "*", Tint::good} : Icon{"○", "-", Tint::faint};
}

// The bars of the sparkline as their heights, and whatever else is not ASCII as a question mark.
std::string asciiText(std::string_view text) {
  constexpr std::array<std::pair<std::string_view, char>, 9> replacements{{{"·", '.'},
                                                                           {"▁", '1'},
                                                                           {"▂", '2'},
                                                                           {"▃", '3'},
                                                                           {"▄", '4'},
                                                                           {"▅", '5'},
                                                                           {"▆", '6'},
                                                                           {"▇", '7'},
                                                                           {"█", '8'}}};
  std::string ascii;
  while (!text.empty()) {
    const std::string_view character = firstCharacters(text, 1);
    text.remove_prefix(character.size());
    const auto* known = std::find_if(replacements.begin(), replacements.end(),
                                     [&](const auto& each) { return each.first == character; });
    if (known != replacements.end()) {
      ascii += known->second;
    } else {
      const bool isASCII = character.size() == 1 && static_cast<unsigned char>(character[0]) < 128;
      ascii += isASCII ? character[0] : '?';
    }
  }
  return ascii;
}

// The first words of `rest` that fit in `columns` columns, taken off its front.
std::string takeLine(std::string_view& rest, std::size_t columns) {
  // One character at least, however wide.
  const std::string_view most =
      std::max(firstColumns(rest, columns), firstCharacters(rest, 1),
               [](auto one, auto other) { return one.size() < other.size(); });
  if (most.size() == rest.size()) {
    return std::string(std::exchange(rest, {}));
  }
  const auto blank = rest.substr(0, most.size() + 1).rfind(' ');
  const bool breaksWord = blank == std::string_view::npos || blank == 0;
  std::string line(breaksWord ? most : rest.substr(0, blank));
  rest.remove_prefix(line.size());
  rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
  return line;
}

}  // namespace

std::string shownText(std::string_view text, const TextStyle& style) {
  const std::string escaped = escapedForDisplay(text);
  return style.utf8 ? escaped : asciiText(escaped);
}

std::vector<MenuLine> menuLines(const WatchView& view, const TextStyle& style) {
  const MenuReport& report = view.report;
  const Icon icon = iconFor(view);
  std::vector<MenuLine> lines{{.text = std::string(style.utf8 ? icon.symbol : icon.asciiSymbol) +
                                       " nodo: " + shownText(view.headline.text, style),
                               .tint = icon.tint}};
  if (report.requester) {
    lines.push_back({.text = "Last request: " + shownText(*report.requester, style)});
  }
  lines.push_back({.text = shownText(report.triggers.line, style) +
                           (report.triggers.total == 1 ? " request" : " requests") +
                           ", a bar an hour"});
  if (report.setupLine) {
    lines.push_back(
        {.text = shownText(*report.setupLine, style) +
                 (view.setupAdvice.empty() ? "" : ": " + shownText(view.setupAdvice, style)),
         .tint = Tint::bad});
  }
  return lines;
}

std::string menuSummary(const WatchView& view, const TextStyle& style) {
  std::string summary = localTimeText(view.report.generatedAt);
  for (const MenuLine& line : menuLines(view, style)) {
    summary += "  " + line.text;
  }
  return summary;
}

std::string tinted(const MenuLine& line, const TextStyle& style) {
  constexpr std::string_view reset = "\x1b[0m";
  std::string_view colour;
  switch (line.tint) {
    case Tint::plain:
      break;
    case Tint::good:
      colour = "\x1b[32m";
      break;
    case Tint::bad:
      colour = "\x1b[33m";
      break;
    case Tint::faint:
      colour = "\x1b[2m";
      break;
  }
  return !style.colour || colour.empty() ? line.text
                                         : std::string(colour) + line.text + std::string(reset);
}

std::vector<MenuLine> wrapped(const std::vector<MenuLine>& lines, int columns) {
  const auto most = static_cast<std::size_t>(std::max(columns, 1));
  std::vector<MenuLine> narrow;
  for (const MenuLine& line : lines) {
    std::string_view rest = line.text;
    do {
      narrow.push_back({.text = takeLine(rest, most), .tint = line.tint});
    } while (!rest.empty());
  }
  return narrow;
}

namespace {

constexpr std::string_view beginScreen = "\x1b[?1049h\x1b[?25l\x1b[?7l";  // no cursor, no wrapping
constexpr std::string_view endScreen = "\x1b[?7h\x1b[?25h\x1b[?1049l";
constexpr std::string_view toTop = "\x1b[H";
constexpr std::string_view clearLine = "\x1b[K";
constexpr std::string_view clearBelow = "\x1b[J";

bool tellsTheSame(const WatchView& one, const WatchView& other) {
  return one.report.iconState == other.report.iconState &&
         one.headline.kind == other.headline.kind &&
         one.report.requester == other.report.requester &&
         one.report.setupLine == other.report.setupLine &&
         one.report.verdict == other.report.verdict &&
         one.report.statusSource == other.report.statusSource && one.timerEnd == other.timerEnd &&
         one.lastRequestAt == other.lastRequestAt;
}

}  // namespace

FrameDisplay::FrameDisplay(std::shared_ptr<Terminal> terminal, TextStyle style)
    : terminal_(std::move(terminal)), style_(style) {
  FrameDisplay::resume();
}

FrameDisplay::~FrameDisplay() {
  try {
    FrameDisplay::suspend();
  } catch (const std::exception&) {
    // The terminal is gone, and there is nobody left to tell.
  }
}

void FrameDisplay::suspend() {
  terminal_->setEcho(true);
  terminal_->write(endScreen);
}

void FrameDisplay::resume() {
  terminal_->setEcho(false);
  terminal_->write(beginScreen);
  last_.clear();
}

void FrameDisplay::show(const WatchView& view) {
  const TerminalSize size = terminal_->size();
  std::vector<MenuLine> lines = menuLines(view, style_);
  for (const std::string& hint : view.hints) {
    lines.push_back({.text = escapedForDisplay(hint), .tint = Tint::faint});
  }
  lines.push_back({.text = "q or Ctrl-C ends.", .tint = Tint::faint});
  lines = wrapped(lines, size.columns);
  lines.resize(std::min(lines.size(), static_cast<std::size_t>(std::max(size.rows, 1))));
  std::string frame(toTop);
  for (const MenuLine& line : lines) {
    frame += frame.size() == toTop.size() ? "" : "\r\n";
    frame += tinted(line, style_) + std::string(clearLine);
  }
  frame += clearBelow;
  if (frame != last_) {
    terminal_->write(frame);
    last_ = std::move(frame);
  }
}

LineDisplay::LineDisplay(std::function<void(const WatchView&)> output,
                         std::function<void(const std::string&)> hint)
    : output_(std::move(output)), hint_(std::move(hint)) {}

void LineDisplay::show(const WatchView& view) {
  for (const std::string& hint : view.hints) {
    if (!last_ || std::find(last_->hints.begin(), last_->hints.end(), hint) == last_->hints.end()) {
      hint_(hint);
    }
  }
  if (!last_ || !tellsTheSame(*last_, view)) {
    output_(view);
  }
  last_ = view;
}

}  // namespace nodo::nodoctl
