#include <programs/nodoctl/commands/MenuDisplay.h>
#include <testing/EnvironmentVariable.h>

#include <gtest/gtest.h>

namespace nodo::nodoctl {
namespace {

constexpr TextStyle plainUTF8{.colour = false, .utf8 = true};
constexpr TextStyle plainASCII{.colour = false, .utf8 = false};

WatchView busyView() {
  WatchView view{.headline = {HeadlineKind::keptAwake, "Kept awake until 10:20 (2 h 5 min left)."},
                 .setupAdvice = "nodoctl hooks install"};
  view.report.generatedAt = dateFromSeconds(1769847300);
  view.report.iconState = MenuBarIconState::manualActive;
  view.report.requester = "Codex - Zoë's project";
  view.report.triggers = {.line = "Triggers 12h  ·▁▂▃▄▅▆▇█··█  77", .total = 77};
  view.report.setupLine = "Setup: hooks 1/4";
  return view;
}

std::vector<std::string> texts(const std::vector<MenuLine>& lines) {
  std::vector<std::string> texts;
  for (const MenuLine& line : lines) {
    texts.push_back(line.text);
  }
  return texts;
}

using Texts = std::vector<std::string>;

TEST(MenuDisplayTest, EverythingHasItsLine) {
  EXPECT_EQ(texts(menuLines(busyView(), plainUTF8)),
            (Texts{"● nodo: Kept awake until 10:20 (2 h 5 min left).",
                   "Last request: Codex - Zoë's project",
                   "Triggers 12h  ·▁▂▃▄▅▆▇█··█  77 requests, a bar an hour",
                   "Setup: hooks 1/4: nodoctl hooks install"}));
}

TEST(MenuDisplayTest, WhatThereIsNotHasNoLine) {
  WatchView view{.headline = {HeadlineKind::off, "Not kept awake: no timer runs."}};
  view.report.iconState = MenuBarIconState::off;
  view.report.triggers = {.line = "Triggers 12h  ·  1", .total = 1};
  EXPECT_EQ(texts(menuLines(view, plainUTF8)),
            (Texts{"○ nodo: Not kept awake: no timer runs.",
                   "Triggers 12h  ·  1 request, a bar an hour"}));
}

TEST(MenuDisplayTest, NoIconContradictsTheHeadline) {
  const struct {
    MenuBarIconState state;
    HeadlineKind kind;
    const char* utf8;
    const char* ascii;
    Tint tint;
  } cases[] = {{MenuBarIconState::off, HeadlineKind::off, "○ ", "- ", Tint::faint},
               {MenuBarIconState::warning, HeadlineKind::off, "▲ ", "! ", Tint::bad},
               {MenuBarIconState::manualActive, HeadlineKind::keptAwake, "● ", "* ", Tint::good},
               {MenuBarIconState::warning, HeadlineKind::keptAwake, "▲ ", "! ", Tint::bad},
               {MenuBarIconState::manualActive, HeadlineKind::sleepAllowed, "▲ ", "! ", Tint::bad},
               {MenuBarIconState::manualActive, HeadlineKind::lockMissing, "▲ ", "! ", Tint::bad},
               {MenuBarIconState::manualActive, HeadlineKind::daemonMissing, "▲ ", "! ", Tint::bad},
               {MenuBarIconState::manualActive, HeadlineKind::unconfirmed, "▲ ", "! ", Tint::bad},
               {MenuBarIconState::off, HeadlineKind::lockLeft, "▲ ", "! ", Tint::bad},
               {MenuBarIconState::off, HeadlineKind::lockWithoutWord, "▲ ", "! ", Tint::bad}};

  for (const auto& each : cases) {
    WatchView view{.headline = {each.kind, "So."}};
    view.report.iconState = each.state;
    const MenuLine head = menuLines(view, plainUTF8).front();
    EXPECT_EQ(head.text, std::string(each.utf8) + "nodo: So.") << rawValue(each.kind);
    EXPECT_EQ(head.tint, each.tint) << rawValue(each.kind);
    EXPECT_EQ(menuLines(view, plainASCII).front().text, std::string(each.ascii) + "nodo: So.");
  }
}

TEST(MenuDisplayTest, WithoutUTF8EveryLineIsASCII) {
  EXPECT_EQ(texts(menuLines(busyView(), plainASCII)),
            (Texts{"* nodo: Kept awake until 10:20 (2 h 5 min left).",
                   "Last request: Codex - Zo?'s project",
                   "Triggers 12h  .12345678..8  77 requests, a bar an hour",
                   "Setup: hooks 1/4: nodoctl hooks install"}));
}

TEST(MenuDisplayTest, ForeignControlCharactersAreShownEscaped) {
  WatchView view = busyView();
  view.report.requester = "a\x1b[2J\nb";
  EXPECT_EQ(menuLines(view, plainUTF8)[1].text, "Last request: a\\u{1b}[2J\\nb");
}

TEST(MenuDisplayTest, ASummaryIsOneLineWithItsTimeOfTheWallClock) {
  const test::EnvironmentVariable zone("TZ", "CET-1");
  EXPECT_EQ(menuSummary(busyView(), plainASCII),
            "2026-01-31 09:15:00  * nodo: Kept awake until 10:20 (2 h 5 min left).  Last request: "
            "Codex - Zo?'s project  Triggers 12h  .12345678..8  77 requests, a bar an hour  Setup: "
            "hooks 1/4: nodoctl hooks install");
}

TEST(MenuDisplayTest, ColourIsOnlyWhereThereIsSome) {
  const MenuLine bad{.text = "no", .tint = Tint::bad};
  EXPECT_EQ(tinted(bad, plainUTF8), "no");
  const TextStyle coloured{.colour = true, .utf8 = true};
  EXPECT_EQ(tinted(bad, coloured), "\x1b[33mno\x1b[0m");
  EXPECT_EQ(tinted({.text = "so"}, coloured), "so");
}

TEST(MenuDisplayTest, LinesAreBrokenBetweenWords) {
  const struct {
    const char* text;
    int columns;
    Texts lines;
  } cases[] = {{"one two", 40, {"one two"}},
               {"one two", 7, {"one two"}},
               {"one two", 6, {"one", "two"}},
               {"one two", 4, {"one", "two"}},
               {"one two", 3, {"one", "two"}},
               {"one two", 2, {"on", "e", "tw", "o"}},
               {"one two", 0, {"o", "n", "e", "t", "w", "o"}},
               {"one  two", 3, {"one", "two"}},
               {"éééé é", 4, {"éééé", "é"}},
               {" one", 2, {" o", "ne"}},
               {"", 5, {""}}};

  for (const auto& each : cases) {
    EXPECT_EQ(texts(wrapped({{.text = each.text, .tint = Tint::good}}, each.columns)), each.lines)
        << each.text << " in " << each.columns;
  }
}

TEST(TextStyleTest, UTF8IsAsTheLocaleSays) {
  const struct {
    Environment environment;
    bool utf8;
  } cases[] = {{{}, false},
               {{{"LANG", "C"}}, false},
               {{{"LANG", "de_DE.UTF-8"}}, true},
               {{{"LANG", "en_US.utf8"}}, true},
               {{{"LANG", "de_DE.UTF-8"}, {"LC_ALL", "C"}}, false},
               {{{"LANG", "de_DE.UTF-8"}, {"LC_ALL", ""}}, true},
               {{{"LANG", "C"}, {"LC_CTYPE", "C.UTF-8"}}, true},
               {{{"LC_ALL", "de_DE.ISO-8859-1"}, {"LC_CTYPE", "C.UTF-8"}}, false}};

  for (const auto& each : cases) {
    EXPECT_EQ(textStyle(each.environment, true).utf8, each.utf8);
  }
}

TEST(TextStyleTest, ColourNeedsATerminalThatCanAndAPersonThatWants) {
  const Environment able{{"TERM", "xterm"}};
  EXPECT_TRUE(textStyle(able, true).colour);
  EXPECT_FALSE(textStyle(able, false).colour);
  EXPECT_FALSE(textStyle({{"TERM", "dumb"}}, true).colour);
  EXPECT_FALSE(textStyle({}, true).colour);
  EXPECT_FALSE(textStyle({{"TERM", "xterm"}, {"NO_COLOR", "1"}}, true).colour);
  EXPECT_TRUE(textStyle({{"TERM", "xterm"}, {"NO_COLOR", ""}}, true).colour);
}

}  // namespace
}  // namespace nodo::nodoctl
