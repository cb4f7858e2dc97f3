#include <NODOCore/base/Text.h>
#include <programs/nodoctl/menu/WatchDisplay.h>

#include <algorithm>
#include <exception>
#include <utility>

namespace nodo::nodoctl {
namespace {

constexpr std::string_view beginScreen = "\x1b[?1049h\x1b[?25l\x1b[?7l";  // no cursor, no wrapping
constexpr std::string_view endScreen = "\x1b[?7h\x1b[?25h\x1b[?1049l";
constexpr std::string_view toTop = "\x1b[H";
constexpr std::string_view clearLine = "\x1b[K";
constexpr std::string_view clearBelow = "\x1b[J";

bool tellsTheSame(const WatchView& one, const WatchView& other) {
  return one.report.iconState == other.report.iconState &&
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
  std::vector<MenuLine> lines = menuLines(view.report, style_);
  for (const std::string& hint : view.hints) {
    lines.push_back({.text = escapedForDisplay(hint), .tint = Tint::faint});
  }
  lines.push_back({.text = "Ctrl-C ends.", .tint = Tint::faint});
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

LineDisplay::LineDisplay(std::function<void(const MenuReport&)> output,
                         std::function<void(const std::string&)> hint)
    : output_(std::move(output)), hint_(std::move(hint)) {}

void LineDisplay::show(const WatchView& view) {
  for (const std::string& hint : view.hints) {
    if (!last_ || std::find(last_->hints.begin(), last_->hints.end(), hint) == last_->hints.end()) {
      hint_(hint);
    }
  }
  if (!last_ || !tellsTheSame(*last_, view)) {
    output_(view.report);
  }
  last_ = view;
}

}  // namespace nodo::nodoctl
