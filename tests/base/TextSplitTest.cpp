#include <NODOCore/base/Text.h>

#include <optional>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

namespace nodo {
namespace {

using Pieces = std::vector<std::string_view>;

struct Split {
  std::string_view text;
  Pieces expected;
};

TEST(TextSplitTest, OnlyALineFeedThatIsACharacterByItselfEndsARow) {
  for (const Split& each :
       {Split{"", {}}, Split{"\n", {}}, Split{"\n\n\n", {}}, Split{"a", {"a"}}, Split{"a\n", {"a"}},
        Split{"\n\na\n\nb\n", {"a", "b"}}, Split{"a\rb", {"a\rb"}},
        Split{"a\r\nb\nc", {"a\r\nb", "c"}}, Split{"\r\n", {"\r\n"}},
        Split{"a\r\n\nb", {"a\r\n", "b"}}, Split{"a\u0085b\u2028c", {"a\u0085b\u2028c"}},
        Split{"a\n\u0301b", {"a", "\u0301b"}}, Split{"\u0600\nb", {"\u0600", "b"}},
        Split{"\xFF\n\xFE", {"\xFF", "\xFE"}}}) {
    EXPECT_EQ(splitAtLineFeeds(each.text), each.expected) << escapedForDisplay(each.text);
  }
}

TEST(TextSplitTest, EveryNewlineCharacterEndsALine) {
  for (const Split& each :
       {Split{"", {}}, Split{"\r\n", {}},
        Split{"a\nb\rc\r\nd\x0B"
              "e\x0C"
              "f",
              {"a", "b", "c", "d", "e", "f"}},
        Split{"a\u0085b\u2028c\u2029d", {"a", "b", "c", "d"}}, Split{"a\n\r\n\nb", {"a", "b"}},
        Split{"a\x1C\x1D\x1E\x1F"
              "b",
              {"a\x1C\x1D\x1E\x1F"
               "b"}},
        Split{" a \n\tb", {" a ", "\tb"}},
        Split{"a\x85"
              "b",
              {"a\x85"
               "b"}}}) {
    EXPECT_EQ(splitLines(each.text), each.expected) << escapedForDisplay(each.text);
  }
}

TEST(TextSplitTest, FieldsAreSeparatedByBlanksAndTabs) {
  for (const Split& each :
       {Split{"", {}}, Split{" \t ", {}}, Split{"a", {"a"}}, Split{" a  b\t\tc ", {"a", "b", "c"}},
        Split{"a\u00A0b", {"a\u00A0b"}}, Split{"a\nb", {"a\nb"}},
        Split{"a \u0301b c", {"a \u0301b", "c"}},  // a blank with an accent is another character
        Split{"\u0600 b c", {"\u0600 b", "c"}}, Split{"a\t\u0301b", {"a", "\u0301b"}}}) {
    EXPECT_EQ(splitFields(each.text), each.expected) << escapedForDisplay(each.text);
  }
}

TEST(TextSplitTest, AFieldIsTakenWithTheOneBlankAfterIt) {
  const struct {
    std::string_view line;
    std::optional<std::string_view> field;
    std::string_view rest;
  } cases[] = {
      {"", std::nullopt, ""},  {"   ", std::nullopt, "   "},
      {"a", "a", ""},          {"a ", "a", ""},
      {"  a b", "a", "b"},     {"a  b", "a", " b"},
      {"a   ", "a", "  "},     {"a\tb c", "a\tb", "c"},
      {"\ta b", "\ta", "b"},   {"a \u0301b c", "a \u0301b", "c"},
      {"\xFF b", "\xFF", "b"},
  };

  for (const auto& each : cases) {
    std::string_view line = each.line;
    EXPECT_EQ(takeField(line), each.field) << '"' << each.line << '"';
    EXPECT_EQ(line, each.rest) << '"' << each.line << '"';
  }
}

TEST(TextSplitTest, WhiteSpaceOfEveryKindIsTrimmedAtBothEnds) {
  for (const std::string_view space :
       {"\t", "\n", "\x0B", "\x0C", "\r", "\r\n", " ", "\u0085", "\u00A0", "\u1680", "\u2000",
        "\u2007", "\u200A", "\u200B", "\u2028", "\u2029", "\u202F", "\u205F", "\u3000"}) {
    const std::string around =
        std::string(space) + "a" + std::string(space) + "b" + std::string(space);
    EXPECT_EQ(trimmed(around), "a" + std::string(space) + "b") << escapedForDisplay(space);
    EXPECT_EQ(trimmed(space), "") << escapedForDisplay(space);
  }
  for (const std::string_view other :
       {"\uFEFF", "\u2060", "\u180E", "\u200C", "\u200D", "\x1C", "\x1F", "\x08", "\u0301"}) {
    EXPECT_EQ(trimmed(other), other) << escapedForDisplay(other);
  }
}

TEST(TextSplitTest, TrimmingBlanksTakesOnlyBlanksAndTabs) {
  EXPECT_EQ(trimmedBlanks(" \ta b\t "), "a b");
  EXPECT_EQ(trimmedBlanks(" \t"), "");
  EXPECT_EQ(trimmedBlanks(""), "");
  for (const std::string_view other : {"\u00A0a\u00A0", "\na\r", "\uFEFFa", "\u3000a"}) {
    EXPECT_EQ(trimmedBlanks(other), other) << escapedForDisplay(other);
  }
}

}  // namespace
}  // namespace nodo
