#include <NODOCore/base/Text.h>

#include <string>
#include <string_view>

#include <gtest/gtest.h>

namespace nodo {
namespace {

struct Search {
  std::string_view text;
  std::string_view needle;
};

TEST(TextSearchTest, ATextIsFoundBetweenCharacterBoundaries) {
  const Search found[] = {
      {"pi", "pi"},
      {"run pi now", "pi"},
      {"aab", "ab"},
      {"\u00E9pi\u00E9", "pi"},
      {"\U0001F1E9\U0001F1EApi\U0001F1EB\U0001F1F7", "pi"},
      {"pi\u0301 and pi", "pi"},  // the first one is another text, the second is not
      {"\u0600pi pi", "pi"},
      {"\u0301pi", "pi"},  // a mark belongs to what stands before it
      {"\u200Dpi", "pi"},
      {"\xFFpi\xFF", "pi"},
      {"\xC3pi", "pi"},
      {"pi\xCC", "pi"},  // half a combining accent combines with nothing
      {"\xCC\x81pi\xCC", "pi"},
      {"a\r\nb", "\r\n"},
      {"\npi\n", "pi"},
      {"pi\u2028", "pi"},
      {"\u0600\npi", "pi"},
      {"x -c y", " -c "},
  };
  for (const auto& each : found) {
    EXPECT_TRUE(contains(each.text, each.needle)) << escapedForDisplay(each.text);
  }
}

TEST(TextSearchTest, ATextInsideOtherCharactersIsNotFound) {
  const Search absent[] = {
      {"", "pi"},
      {"p", "pi"},
      {"PI", "pi"},
      {"p i", "pi"},
      {"pi\u0301", "pi"},  // a combining accent
      {"pi\u200D", "pi"},  // a zero-width joiner
      {"pi\uFE0F", "pi"},  // a variation selector
      {"pi\u0903", "pi"},  // a spacing mark
      {"pi\u20E3", "pi"},  // an enclosing keycap
      {"\u0600pi", "pi"},  // a prepended mark
      {"\u0600pi\u0301", "pi"},
      {"a\r\nb", "\r"},
      {"a\r\nb", "\n"},
      {"x -c \u0301", " -c "},
      {"x\u0600 -c ", " -c "},
  };
  for (const auto& each : absent) {
    EXPECT_FALSE(contains(each.text, each.needle)) << escapedForDisplay(each.text);
  }
}

TEST(TextSearchTest, APrefixEndsAtACharacterBoundary) {
  for (const Search& each : {Search{"pi", "pi"}, Search{"pi x", "pi "}, Search{"pi\u00E9", "pi"},
                             Search{"pi\xCC", "pi"}, Search{"sleep\t\u0301", "sleep\t"}}) {
    EXPECT_TRUE(hasPrefix(each.text, each.needle)) << escapedForDisplay(each.text);
  }
  for (const Search& each :
       {Search{"", "pi"}, Search{"p", "pi"}, Search{"xpi", "pi"}, Search{"pi\u0301", "pi"},
        Search{"pi \u0301", "pi "}, Search{"\u0600pi", "pi"}, Search{"\uFEFFpi", "pi"},
        Search{"\r\n", "\r"}}) {
    EXPECT_FALSE(hasPrefix(each.text, each.needle)) << escapedForDisplay(each.text);
  }
}

TEST(TextSearchTest, ASuffixBeginsAtACharacterBoundary) {
  for (const Search& each :
       {Search{"pi", "pi"}, Search{"/usr/bin/pi", "/bin/pi"}, Search{"\u00E9 -c", " -c"},
        Search{"\u0301 grok", " grok"}, Search{"\xFF/grok", "/grok"}}) {
    EXPECT_TRUE(hasSuffix(each.text, each.needle)) << escapedForDisplay(each.text);
  }
  for (const Search& each :
       {Search{"", "pi"}, Search{"i", "pi"}, Search{"pix", "pi"}, Search{"pi\u0301", "pi"},
        Search{"\u0600/bin/pi", "/bin/pi"}, Search{"a\r\n", "\n"}}) {
    EXPECT_FALSE(hasSuffix(each.text, each.needle)) << escapedForDisplay(each.text);
  }
}

TEST(TextSearchTest, ALongTextFullOfNearMissesIsSearchedToItsEnd) {
  std::string text;
  for (int count = 0; count < 100000; ++count) {
    text += "pi\u0301";
  }
  EXPECT_FALSE(contains(text, "pi"));
  EXPECT_TRUE(contains(text + "pi", "pi"));
}

}  // namespace
}  // namespace nodo
