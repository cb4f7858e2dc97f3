#include <programs/nodoctl/commands/MenuDisplay.h>

#include <gtest/gtest.h>

namespace nodo::nodoctl {
namespace {

constexpr TextStyle plainUTF8{.colour = false, .utf8 = true};
constexpr TextStyle plainASCII{.colour = false, .utf8 = false};

MenuReport busyReport() {
  MenuReport report;
  report.generatedAt = dateFromSeconds(1769847300);
  report.iconState = MenuBarIconState::manualActive;
  report.countdown = "2h5m";
  report.requester = "Codex - Zoë's project";
  report.triggers.line = "Triggers 12h  ·▁▂▃▄▅▆▇█··█  77";
  report.setupLine = "Setup: hooks 1/4";
  report.verdict = DoctorVerdict::locked;
  return report;
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
  EXPECT_EQ(texts(menuLines(busyReport(), plainUTF8)),
            (Texts{"● nodo: kept awake, 2h5m left", "Last request: Codex - Zoë's project",
                   "Triggers 12h  ·▁▂▃▄▅▆▇█··█  77", "Setup: hooks 1/4",
                   "Ready: nodo owns the macOS power lock."}));
}

TEST(MenuDisplayTest, WhatThereIsNotHasNoLine) {
  MenuReport report;
  report.triggers.line = "Triggers 12h  ·  0";
  EXPECT_EQ(texts(menuLines(report, plainUTF8)),
            (Texts{"… nodo: loading", "Triggers 12h  ·  0",
                   "Warning: helper unavailable; closed-lid prevention will not work."}));
}

TEST(MenuDisplayTest, EveryIconHasWordsOfItsOwn) {
  const struct {
    MenuBarIconState state;
    const char* utf8;
    const char* ascii;
  } cases[] = {
      {MenuBarIconState::loading, "… nodo: loading", ". nodo: loading"},
      {MenuBarIconState::off, "○ nodo: off: sleep is allowed", "- nodo: off: sleep is allowed"},
      {MenuBarIconState::warning, "▲ nodo: needs attention", "! nodo: needs attention"},
      {MenuBarIconState::manualActive, "● nodo: kept awake", "* nodo: kept awake"}};

  for (const auto& each : cases) {
    MenuReport report;
    report.iconState = each.state;
    EXPECT_EQ(menuLines(report, plainUTF8).front().text, each.utf8);
    EXPECT_EQ(menuLines(report, plainASCII).front().text, each.ascii);
  }
}

TEST(MenuDisplayTest, WithoutUTF8EveryLineIsASCII) {
  EXPECT_EQ(texts(menuLines(busyReport(), plainASCII)),
            (Texts{"* nodo: kept awake, 2h5m left", "Last request: Codex - Zo?'s project",
                   "Triggers 12h  .12345678..8  77", "Setup: hooks 1/4",
                   "Ready: nodo owns the macOS power lock."}));
}

TEST(MenuDisplayTest, ForeignControlCharactersAreShownEscaped) {
  MenuReport report = busyReport();
  report.requester = "a\x1b[2J\nb";
  EXPECT_EQ(menuLines(report, plainUTF8)[1].text, "Last request: a\\u{1b}[2J\\nb");
}

TEST(MenuDisplayTest, ASummaryIsOneLineWithItsTime) {
  EXPECT_EQ(menuSummary(busyReport(), plainASCII),
            "2026-01-31T08:15:00Z  * nodo: kept awake, 2h5m left  Last request: Codex - Zo?'s "
            "project  Triggers 12h  .12345678..8  77  Setup: hooks 1/4  Ready: nodo owns the macOS "
            "power lock.");
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
