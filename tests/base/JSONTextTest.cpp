#include <NODOCore/base/JSONValue.h>

#include <string>

#include <gtest/gtest.h>

namespace nodo {
namespace {

std::string compact(const std::string& text) {
  return jsonText(JSONValue(text), JSONLayout::compact);
}

TEST(JSONTextTest, EachLayoutHasItsForm) {
  const JSONValue value =
      JSONValue::parse(R"({"b": [1, {"d": null, "c": true}], "a": {}, "e": []})");
  EXPECT_EQ(jsonText(value, JSONLayout::compact), R"({"b":[1,{"d":null,"c":true}],"a":{},"e":[]})");
  EXPECT_EQ(jsonText(value, JSONLayout::pretty), R"({
  "b": [
    1,
    {
      "d": null,
      "c": true
    }
  ],
  "a": {},
  "e": []
})");
  EXPECT_EQ(jsonText(value, JSONLayout::prettySorted), R"({
  "a": {},
  "b": [
    1,
    {
      "c": true,
      "d": null
    }
  ],
  "e": []
})");
}

TEST(JSONTextTest, SortingKeepsTheOrderOfNamesThatOccurTwice) {
  const JSONValue value = JSONValue::parse(R"({"b": 1, "a": 2, "b": 3})");
  EXPECT_EQ(jsonText(value, JSONLayout::prettySorted),
            "{\n  \"a\": 2,\n  \"b\": 1,\n  \"b\": 3\n}");
}

TEST(JSONTextTest, EveryLayoutIsReadBackAsTheSameDocument) {
  const JSONValue value = JSONValue::parse(
      R"({"a": "x\"\\\/\b\f\n\r\t\u0001\u007f", "b": [-0.0, 1.10, []], "c": null})");
  for (const JSONLayout layout :
       {JSONLayout::compact, JSONLayout::pretty, JSONLayout::prettySorted}) {
    EXPECT_EQ(JSONValue::parse(jsonText(value, layout)), value);
  }
}

TEST(JSONTextTest, ControlCharactersQuotesAndBackslashesAreEscaped) {
  EXPECT_EQ(compact("a\"b\\c/d"), R"("a\"b\\c/d")");
  EXPECT_EQ(compact("\n\r\t"), R"("\n\r\t")");
  EXPECT_EQ(compact(std::string("\0\x01\x08\x0B\x0C\x1B\x1F", 7)),
            R"("\u0000\u0001\u0008\u000b\u000c\u001b\u001f")");
  EXPECT_EQ(compact("\u00E9\u4E2D\U0001F600"), "\"\u00E9\u4E2D\U0001F600\"");
}

TEST(JSONTextTest, EveryByteThatIsNoUTF8IsWrittenAsTheReplacementCharacter) {
  EXPECT_EQ(compact("a\xFF"
                    "b\xC3"),
            "\"a\uFFFDb\uFFFD\"");
  EXPECT_EQ(compact("\xED\xA0\x80"), "\"\uFFFD\uFFFD\uFFFD\"");
  const JSONValue named(JSONValue::Object{{"\xFF", JSONValue(true)}});
  EXPECT_EQ(jsonText(named, JSONLayout::compact), "{\"\uFFFD\":true}");
}

TEST(JSONTextTest, SingleValuesAreDocumentsToo) {
  for (const char* text : {"null", "true", "false", "-1.50", "\"x\"", "[]", "{}"}) {
    EXPECT_EQ(jsonText(JSONValue::parse(text), JSONLayout::pretty), text);
  }
}

}  // namespace
}  // namespace nodo
