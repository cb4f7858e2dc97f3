#include <NODOCore/base/Text.h>
#include <testing/CodePoints.h>
#include <testing/JSONRows.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

namespace nodo {
namespace {

using test::testRows;
using test::utf8;
using test::valueOf;

// "0061 0301": code points in hexadecimal.
std::string textFromScalars(const std::string& scalars) {
  std::string text;
  std::istringstream stream(scalars);
  std::uint32_t point = 0;
  while (stream >> std::hex >> point) {
    text += utf8(point);
  }
  return text;
}

// Every way in which bytes can fail to be UTF-8, with what the repair makes of them.
const struct InvalidText {
  std::string_view text;
  std::string_view repaired;
} invalidTexts[] = {
    {"\x80", "\uFFFD"},
    {"\xFF", "\uFFFD"},
    {"\xFE", "\uFFFD"},
    {"a\xC3", "a\uFFFD"},
    {"\xC3z", "\uFFFDz"},
    {"\xE2\x82", "\uFFFD\uFFFD"},
    {"\xE2\x82z", "\uFFFD\uFFFDz"},
    {"\xF0\x9F\x98", "\uFFFD\uFFFD\uFFFD"},
    {"\xC0\xAF", "\uFFFD\uFFFD"},                      // an overlong slash
    {"\xE0\x80\xAF", "\uFFFD\uFFFD\uFFFD"},            // the same in three bytes
    {"\xF0\x80\x80\xAF", "\uFFFD\uFFFD\uFFFD\uFFFD"},  // and in four
    {"\xED\xA0\x80", "\uFFFD\uFFFD\uFFFD"},            // a surrogate
    {"\xF4\x90\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD"},  // beyond U+10FFFF
    {"\xF8\x88\x80\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD"},
    {"\xC3\xA9\xC3", "\u00E9\uFFFD"},
    {"\xC3\xC3\xA9", "\uFFFD\u00E9"},
};

TEST(TextTest, WellFormedUTF8IsValidAndRepairedToItself) {
  for (const std::string_view text :
       {std::string_view(""), std::string_view("plain"), std::string_view("\0", 1),
        std::string_view("\u00E9\u20AC\U0001F600"), std::string_view("\uFFFD"),
        std::string_view("\xF4\x8F\xBF\xBF"), std::string_view("\xED\x9F\xBF")}) {
    EXPECT_TRUE(isValidUTF8(text)) << text;
    EXPECT_EQ(repairedUTF8(text), text);
  }
}

TEST(TextTest, EveryInvalidByteIsReplaced) {
  for (const auto& each : invalidTexts) {
    EXPECT_FALSE(isValidUTF8(each.text)) << escapedForDisplay(each.text);
    EXPECT_EQ(repairedUTF8(each.text), each.repaired);
    EXPECT_TRUE(isValidUTF8(repairedUTF8(each.text)));
  }
}

TEST(TextTest, InvalidTextGoesThroughEveryFunctionUnharmed) {
  for (const auto& each : invalidTexts) {
    const std::string_view text = each.text;
    EXPECT_EQ(characterCount(text), characterCount(each.repaired));
    EXPECT_EQ(firstCharacters(text, text.size()), text);
    EXPECT_EQ(lowercased(text), text);
    EXPECT_EQ(trimmed(text), text);
    EXPECT_EQ(trimmedBlanks(text), text);
    EXPECT_EQ(splitLines(text).size(), 1U);
    EXPECT_EQ(splitAtLineFeeds(text).size(), 1U);
    EXPECT_EQ(splitFields(text).size(), 1U);
    std::string_view rest = text;
    EXPECT_EQ(takeField(rest), text);
    EXPECT_EQ(escapedForDisplay(text), each.repaired);
    EXPECT_FALSE(contains(text, "pi"));
    EXPECT_FALSE(hasPrefix(text, "pi"));
    EXPECT_FALSE(hasSuffix(text, "pi"));
    EXPECT_FALSE(integerFromText<std::int64_t>(text));
  }
}

TEST(TextTest, CharactersAreGraphemeClusters) {
  for (const JSONValue& row : testRows("vectors/grapheme_counts.json")) {
    const auto scalars = valueOf<std::string>(row, "scalars");
    const auto expected = static_cast<std::size_t>(valueOf<std::int64_t>(row, "count"));
    const std::string text = textFromScalars(scalars);
    EXPECT_EQ(characterCount(text), expected) << scalars;
    EXPECT_EQ(firstCharacters(text, expected), text) << scalars;
    EXPECT_LT(firstCharacters(text, expected - 1).size(), text.size()) << scalars;
  }
}

TEST(TextTest, ConsonantsThatAViramaJoinsAreOneCharacter) {
  EXPECT_EQ(characterCount("\u0915\u094D\u0937"), 1U);
  EXPECT_EQ(characterCount("\u0915\u094D\u0937\u0915\u094D\u0937"), 2U);
  EXPECT_EQ(characterCount("\u0915\u094D\u0924\u094D\u0937"), 1U);
  EXPECT_EQ(characterCount("\u0915\u0937"), 2U);
  EXPECT_EQ(characterCount("\u0915\u094D"
                           "a"),
            2U);
  EXPECT_EQ(characterCount("a\u094D\u0937"), 2U);
}

TEST(TextTest, TheFirstCharactersAreCutBetweenCharacters) {
  const struct {
    std::string_view text;
    std::size_t count;
    std::string_view expected;
  } cases[] = {
      {"", 3, ""},
      {"abc", 0, ""},
      {"abc", 2, "ab"},
      {"abc", 4, "abc"},
      {"e\u0301x", 1, "e\u0301"},
      {"\r\nx", 1, "\r\n"},
      {"\U0001F1E9\U0001F1EA\U0001F1EB\U0001F1F7", 1, "\U0001F1E9\U0001F1EA"},
      {"\U0001F468\u200D\U0001F469\u200D\U0001F467y", 1,
       "\U0001F468\u200D\U0001F469\u200D\U0001F467"},
      {"\xFF\xFE"
       "a",
       1, "\xFF"},
  };

  for (const auto& each : cases) {
    EXPECT_EQ(firstCharacters(each.text, each.count), each.expected) << each.text;
  }
}

TEST(TextTest, LowerCaseFollowsUnicodeCodePointByCodePoint) {
  const struct {
    std::string_view text;
    std::string_view expected;
  } cases[] = {
      {"", ""},
      {"Claude-CODE 09_@[`{", "claude-code 09_@[`{"},
      {"\u00C4\u00D6\u00DC", "\u00E4\u00F6\u00FC"},
      {"\u212A", "k"},       // the Kelvin sign
      {"\u212B", "\u00E5"},  // the Angstrom sign
      {"\u03A3", "\u03C3"},
      {"\u039F\u03A3", "\u03BF\u03C3"},  // never the final sigma
      {"\u0130", "i\u0307"},
      {"\u0130\u0130X", "i\u0307i\u0307x"},
      {"\u1E9E", "\u00DF"},
      {"\u01C5", "\u01C6"},
      {"\U00010400", "\U00010428"},                  // beyond the basic plane
      {"\u0131\u00DF\u4E2D", "\u0131\u00DF\u4E2D"},  // has no lower case or is it
      {"A\xFF"
       "B\xC3",
       "a\xFF"
       "b\xC3"},
  };

  for (const auto& each : cases) {
    EXPECT_EQ(lowercased(each.text), each.expected) << each.text;
  }
}

TEST(TextTest, WhatATerminalWouldActOnIsShownAsAnEscape) {
  const struct {
    std::string_view text;
    std::string_view expected;
  } cases[] = {
      {"plain \u00E9\u4E2D\U0001F600 \"'\\", "plain \u00E9\u4E2D\U0001F600 \"'\\"},
      {"a\nb\rc\td", "a\\nb\\rc\\td"},
      {"\x1B[31mred\x1B]0;title\x07", "\\u{1b}[31mred\\u{1b}]0;title\\u{7}"},
      {std::string_view("\0\x1F\x7F", 3), "\\u{0}\\u{1f}\\u{7f}"},
      {"\u0080\u0085\u009B\u009F\u00A0", "\\u{80}\\u{85}\\u{9b}\\u{9f}\u00A0"},
      {"\u061C\u200E\u200F", "\\u{61c}\\u{200e}\\u{200f}"},
      {"\u202A\u202B\u202C\u202D\u202E", "\\u{202a}\\u{202b}\\u{202c}\\u{202d}\\u{202e}"},
      {"\u2066\u2067\u2068\u2069", "\\u{2066}\\u{2067}\\u{2068}\\u{2069}"},
      {"\u2028\u2029", "\\u{2028}\\u{2029}"},
      {"a\u200Db\u2065", "a\u200Db\u2065"},
      {"x\x9Bm\xE2\x80", "x\uFFFDm\uFFFD\uFFFD"},  // C1 as a bare byte is no UTF-8
  };

  for (const auto& each : cases) {
    EXPECT_EQ(escapedForDisplay(each.text), each.expected);
  }
}

TEST(FirstColumnsTest, WhatIsWideTakesTwoColumnsAndWhatCombinesNone) {
  EXPECT_EQ(firstColumns("abc", 2), "ab");
  EXPECT_EQ(firstColumns("abc", 3), "abc");
  EXPECT_EQ(firstColumns("abc", 0), "");
  EXPECT_EQ(firstColumns("", 5), "");
  EXPECT_EQ(firstColumns("\u4E2D\u6587x", 3), "\u4E2D");
  EXPECT_EQ(firstColumns("\u4E2D\u6587x", 4), "\u4E2D\u6587");
  EXPECT_EQ(firstColumns("e\u0301e\u0301", 1), "e\u0301");
  EXPECT_EQ(firstColumns("\U0001F469\u200D\U0001F469\u200D\U0001F467!", 2),
            "\U0001F469\u200D\U0001F469\u200D\U0001F467");
  EXPECT_EQ(firstColumns("\xFF\xFFz", 2), "\xFF\xFF");
}

}  // namespace
}  // namespace nodo
