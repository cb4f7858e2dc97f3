#include <NODOCore/base/JSONValue.h>
#include <platform/linux/bus/MessageContents.h>
#include <testing/CodePoints.h>

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace nodo {
namespace {

using test::utf8;

// By Unicode's own list, section 23.7: 32 in the Arabic Presentation Forms, 2 at the end of each of
// the 17 planes.
std::set<std::uint32_t> allNoncharacters() {
  std::set<std::uint32_t> all;
  for (std::uint32_t point = 0xFDD0; point <= 0xFDEF; ++point) {
    all.insert(point);
  }
  for (std::uint32_t plane = 0; plane <= 16; ++plane) {
    all.insert(plane << 16U | 0xFFFEU);
    all.insert(plane << 16U | 0xFFFFU);
  }
  return all;
}

TEST(NoncharactersTest, JustThe66OfUnicodeAreReplaced) {
  std::set<std::uint32_t> replaced;
  for (std::uint32_t point = 0; point <= 0x10FFFF; ++point) {
    const bool isSurrogate = point >= 0xD800 && point <= 0xDFFF;
    if (isSurrogate) {
      continue;
    }
    const std::string text = "a" + utf8(point) + "z";
    const std::string result = withoutNoncharacters(text);
    if (result != text) {
      ASSERT_EQ(result, "a\uFFFDz") << point;
      replaced.insert(point);
    }
  }
  EXPECT_EQ(replaced, allNoncharacters());
}

TEST(NoncharactersTest, EscapedTheyDecodeToTheSame) {
  std::string text = "\u00e9";
  for (const std::uint32_t point : allNoncharacters()) {
    text += utf8(point);
  }
  text += "\U0001F600";
  const std::string json = jsonText(JSONValue(text), JSONLayout::compact);
  const std::string escaped = withEscapedNoncharacters(json);
  EXPECT_EQ(withoutNoncharacters(escaped), escaped) << "none is left";
  EXPECT_EQ(JSONValue::parse(escaped), JSONValue(text));
  EXPECT_EQ(withEscapedNoncharacters("\"\uFFFF\U0010FFFE\uFDD0\""),
            R"("\uffff\udbff\udffe\ufdd0")");
}

TEST(NoncharactersTest, WhatIsCutOffOrNoUTF8StaysAsItIs) {
  for (const std::string& text :
       std::vector<std::string>{"", "\xEF", "\xEF\xBF", "\xF4", "\xF4\x8F\xBF", "\xFF\xFF\xFF\xFF",
                                "\xEF\xBF\xBD", "\xEF\xEF\xB7", std::string("\0\xEF", 2)}) {
    EXPECT_EQ(withoutNoncharacters(text), text);
    EXPECT_EQ(withEscapedNoncharacters(text), text);
  }
  EXPECT_EQ(withoutNoncharacters("\xEF\xEF\xBF\xBF"), "\xEF\uFFFD");
}

}  // namespace
}  // namespace nodo
