#pragma once

#include <NODOCore/presentation/MenuReport.h>
#include <programs/nodoctl/terminal/Terminal.h>

#include <optional>
#include <string>
#include <vector>

/// The menu as text for people. Foreign control characters are shown escaped, and without UTF-8
/// every line is ASCII. Pure.
namespace nodo::nodoctl {

enum class Tint { plain, good, bad, faint };

/// One line, without colour and line feed, and how it is to be tinted.
struct MenuLine {
  std::string text;
  Tint tint = Tint::plain;

  bool operator==(const MenuLine&) const = default;
};

/// The icon with the countdown, who asked, the requests, what is left to set up, the verdict.
std::vector<MenuLine> menuLines(const MenuReport& report, const TextStyle& style);

/// The same in one line, with the time, for a log.
std::string menuSummary(const MenuReport& report, const TextStyle& style);

/// `line` in its colour, if there are any.
std::string tinted(const MenuLine& line, const TextStyle& style);

/// `lines` broken between words so that none has more than `columns` characters; a word that is
/// longer is cut.
std::vector<MenuLine> wrapped(const std::vector<MenuLine>& lines, int columns);

}  // namespace nodo::nodoctl
