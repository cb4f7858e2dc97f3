#include <NODOCore/base/Date.h>
#include <NODOCore/base/Text.h>
#include <programs/nodoctl/menu/MenuText.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

namespace nodo::nodoctl {
namespace {

struct Icon {
  std::string_view symbol;
  std::string_view asciiSymbol;
  std::string_view words;
  Tint tint;
};

Icon iconFor(MenuBarIconState state) {
  switch (state) {
    case MenuBarIconState::loading:
      break;
    case MenuBarIconState::off:
      return {"○", "-", "off: sleep is allowed", Tint::faint};
    case MenuBarIconState::warning:
      return {"▲", "!", "needs attention", Tint::bad};
    case MenuBarIconState::manualActive:
      return {"●", "*", "kept awake", Tint::good};
  }
  return {"…", ".", "loading", Tint::faint};
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

std::string shown(std::string_view text, const TextStyle& style) {
  const std::string escaped = escapedForDisplay(text);
  return style.utf8 ? escaped : asciiText(escaped);
}

// The first `columns` characters of `rest` that end a word, taken off its front.
std::string takeLine(std::string_view& rest, std::size_t columns) {
  const std::string_view most = firstCharacters(rest, columns);
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

std::vector<MenuLine> menuLines(const MenuReport& report, const TextStyle& style) {
  const Icon icon = iconFor(report.iconState);
  std::string head(style.utf8 ? icon.symbol : icon.asciiSymbol);
  head += " nodo: " + std::string(icon.words);
  if (report.countdown) {
    head += ", " + shown(*report.countdown, style) + " left";
  }
  std::vector<MenuLine> lines{{.text = head, .tint = icon.tint}};
  if (report.requester) {
    lines.push_back({.text = "Last request: " + shown(*report.requester, style)});
  }
  lines.push_back({.text = shown(report.triggers.line, style)});
  if (report.setupLine) {
    lines.push_back({.text = shown(*report.setupLine, style), .tint = Tint::bad});
  }
  lines.push_back({.text = shown(rawValue(report.verdict), style),
                   .tint = isReady(report.verdict) ? Tint::plain : Tint::bad});
  return lines;
}

std::string menuSummary(const MenuReport& report, const TextStyle& style) {
  std::string summary = iso8601Text(report.generatedAt);
  for (const MenuLine& line : menuLines(report, style)) {
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

}  // namespace nodo::nodoctl
