#pragma once

#include <NODOCore/diagnostics/Headline.h>
#include <NODOCore/presentation/MenuReport.h>
#include <programs/nodoctl/terminal/Terminal.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What is tinted and fits a terminal: the menu as text for people, and where "watch" shows it.
/// Foreign control characters are shown escaped, and without UTF-8 every line is ASCII.
namespace nodo::nodoctl {

enum class Tint { plain, good, bad, faint };

/// One line, without colour and line feed, and how it is to be tinted.
struct MenuLine {
  std::string text;
  Tint tint = Tint::plain;

  bool operator==(const MenuLine&) const = default;
};

/// What is shown at one instant.
struct WatchView {
  MenuReport report;
  Headline headline;
  std::string setupAdvice;            ///< what to do about the report's setup line
  std::vector<std::string> hints;     ///< what could not be had, for people
  std::optional<Date> timerEnd;       ///< of a running timer
  std::optional<Date> lastRequestAt;  ///< when somebody asked last
};

/// The headline behind its icon, who asked, the requests, what is left to set up.
std::vector<MenuLine> menuLines(const WatchView& view, const TextStyle& style);

/// The same in one line, with the time, for a log.
std::string menuSummary(const WatchView& view, const TextStyle& style);

/// Text from outside, fit to be shown: without UTF-8 the bars of a sparkline as their heights, and
/// whatever else is not ASCII as a question mark.
std::string shownText(std::string_view text, const TextStyle& style);

/// `line` in its colour, if there are any.
std::string tinted(const MenuLine& line, const TextStyle& style);

/// `lines` broken between words so that none takes more than `columns` columns; a word that is
/// longer is broken.
std::vector<MenuLine> wrapped(const std::vector<MenuLine>& lines, int columns);

/// Where "watch" shows it.
class WatchDisplay {
 public:
  virtual ~WatchDisplay() = default;

  virtual void show(const WatchView& view) = 0;

  /// The terminal may have another size or other contents: the next frame is drawn whole.
  virtual void forget() {}

  /// Gives the terminal back, until `resume`; ending the display does so, too.
  virtual void suspend() {}

  virtual void resume() {}
};

/// Redraws frames in place, on the terminal's alternate screen. A frame that looks like the last
/// one is not written, and any other in one go over the old one, so that nothing flickers.
class FrameDisplay : public WatchDisplay {
 public:
  FrameDisplay(std::shared_ptr<Terminal> terminal, TextStyle style);
  FrameDisplay(const FrameDisplay&) = delete;
  FrameDisplay& operator=(const FrameDisplay&) = delete;
  ~FrameDisplay() override;

  void show(const WatchView& view) override;

  void forget() override { last_.clear(); }

  void suspend() override;
  void resume() override;

 private:
  std::shared_ptr<Terminal> terminal_;
  TextStyle style_;
  std::string last_;
};

/// Writes a line at each change: when something else is shown than before, apart from the passing
/// of time.
class LineDisplay : public WatchDisplay {
 public:
  /// `output` and `hint` take a line each, without its line feed.
  LineDisplay(std::function<void(const WatchView&)> output,
              std::function<void(const std::string&)> hint);

  void show(const WatchView& view) override;

 private:
  std::function<void(const WatchView&)> output_;
  std::function<void(const std::string&)> hint_;
  std::optional<WatchView> last_;
};

}  // namespace nodo::nodoctl
