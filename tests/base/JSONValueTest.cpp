#include <NODOCore/base/Errors.h>
#include <NODOCore/base/JSONValue.h>

#include <clocale>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace nodo {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

std::string parseError(std::string_view text) {
  try {
    JSONValue::parse(text);
  } catch (const DecodingError& error) {
    EXPECT_EQ(error.path(), "");
    return error.what();
  }
  return "no error";
}

std::string nested(std::size_t depth) {
  return std::string(depth, '[') + std::string(depth, ']');
}

TEST(JSONValueTest, ADocumentIsReadAsATree) {
  const JSONValue value =
      JSONValue::parse(R"( {"a": [null, true, false, 5, "x\u00e9\ud83d\ude00\n"], "b": {}} )");
  const JSONValue& list = *value.member("a");
  ASSERT_EQ(list.array()->size(), 5U);
  EXPECT_TRUE((*list.array())[0].isNull());
  EXPECT_TRUE(*(*list.array())[1].boolean());
  EXPECT_FALSE(*(*list.array())[2].boolean());
  EXPECT_EQ((*list.array())[3].number()->digits, "5");
  EXPECT_EQ(*(*list.array())[4].text(), "x\u00E9\U0001F600\n");
  EXPECT_TRUE(value.member("b")->object()->empty());
  EXPECT_EQ(value.member("c"), nullptr);
  EXPECT_EQ(list.member("a"), nullptr);
}

TEST(JSONValueTest, AValueIsOfOneKindOnly) {
  const JSONValue number(std::int64_t{0});
  EXPECT_NE(number.number(), nullptr);
  EXPECT_EQ(number.boolean(), nullptr);
  EXPECT_EQ(number.text(), nullptr);
  EXPECT_EQ(number.array(), nullptr);
  EXPECT_EQ(number.object(), nullptr);
  EXPECT_FALSE(number.isNull());
  EXPECT_TRUE(JSONValue().isNull());
}

TEST(JSONValueTest, OfANameThatOccursTwiceTheLastCounts) {
  const JSONValue value = JSONValue::parse(R"({"a": 1, "b": 2, "a": 3})");
  EXPECT_EQ(value.member("a")->number()->digits, "3");
  EXPECT_EQ(jsonText(value, JSONLayout::compact), R"({"a":1,"b":2,"a":3})");
}

TEST(JSONValueTest, MembersKeepTheirOrder) {
  const std::string text = R"({"z":1,"a":{"y":2,"b":3},"m":[]})";
  EXPECT_EQ(jsonText(JSONValue::parse(text), JSONLayout::compact), text);
}

TEST(JSONValueTest, NumbersKeepTheirDigits) {
  for (const std::string digits :
       {"0", "1.10", "-0.0", "1e2", "1E+02", "0.10000000000000000000000000001", "-5",
        "9223372036854775807", "-9223372036854775808", "9223372036854775808",
        "18446744073709551615", "18446744073709551616", "12345678901234567890",
        "99999999999999999999", "-99999999999999999999", "1e-400", "0e999999999999"}) {
    const JSONValue value = JSONValue::parse("[" + digits + "]");
    EXPECT_EQ(jsonText(value, JSONLayout::compact), "[" + digits + "]");
  }
}

// A program that uses the library may speak its user's language.
TEST(JSONValueTest, NumbersKeepTheirPointWhereAProgramWritesCommas) {
  const std::string before = std::setlocale(LC_NUMERIC, nullptr);
  if (std::setlocale(LC_NUMERIC, "de_DE.UTF-8") == nullptr) {
    GTEST_SKIP() << "this machine has no locale with a comma";
  }
  const std::string text = jsonText(JSONValue::parse("[1.5,-2.25e3]"), JSONLayout::compact);
  std::setlocale(LC_NUMERIC, before.c_str());
  EXPECT_EQ(text, "[1.5,-2.25e3]");
}

TEST(JSONValueTest, NegativeZeroKeepsItsSign) {
  EXPECT_EQ(JSONValue::parse("-0").number()->digits, "-0");
}

TEST(JSONValueTest, ANumberTooLargeForADoubleIsNoJSON) {
  for (const char* text : {"1e400", "-1e400", "[1, 1e999999999999]"}) {
    EXPECT_THAT(parseError(text), HasSubstr("a number out of range")) << text;
  }
}

TEST(JSONValueTest, TextThatIsNotJSONIsAnError) {
  for (const std::string_view text : {std::string_view(""),
                                      std::string_view(" "),
                                      std::string_view("nul"),
                                      std::string_view("[1,]"),
                                      std::string_view("{\"a\":1,}"),
                                      std::string_view("{a:1}"),
                                      std::string_view("{'a':1}"),
                                      std::string_view("[1 2]"),
                                      std::string_view("[1]x"),
                                      std::string_view("{} {}"),
                                      std::string_view("01"),
                                      std::string_view("+1"),
                                      std::string_view(".5"),
                                      std::string_view("1."),
                                      std::string_view("1e"),
                                      std::string_view("0x10"),
                                      std::string_view("NaN"),
                                      std::string_view("Infinity"),
                                      std::string_view("\"a\nb\""),
                                      std::string_view("\"\\x\""),
                                      std::string_view("\"\\ud800\""),
                                      std::string_view("\"\\udc00\""),
                                      std::string_view("\"abc"),
                                      std::string_view("{\"a\"}"),
                                      std::string_view("[1] // note"),
                                      std::string_view("/**/1"),
                                      std::string_view("]"),
                                      std::string_view("[}"),
                                      std::string_view("\"\xFF\""),
                                      std::string_view("\"\xC0\xAF\""),
                                      std::string_view("\"\xED\xA0\x80\""),
                                      std::string_view("TRUE"),
                                      std::string_view("\xFF\xFE[\0]\0", 6)}) {
    EXPECT_THAT(parseError(text), HasSubstr("expected JSON, found an error at line "))
        << "for " << text;
  }
}

TEST(JSONValueTest, AZeroByteDoesNotEndTheDocument) {
  for (const std::string_view text :
       {std::string_view("{}\0", 3), std::string_view("{}\0{}", 5), std::string_view("[1\0]", 4),
        std::string_view("\0", 1), std::string_view("\"a\0b\"", 5)}) {
    EXPECT_THAT(parseError(text), HasSubstr("expected JSON, found an error at line 1, column "))
        << "for " << ::testing::PrintToString(text);
  }
}

TEST(JSONValueTest, AnErrorQuotesNoMoreThanItNeeds) {
  EXPECT_LT(parseError("\"" + std::string(1'000'000, 'x')).size(), 300U);
}

TEST(JSONValueTest, AnErrorNamesItsLineAndColumn) {
  const struct {
    const char* text;
    const char* place;
  } cases[] = {
      {"x", "line 1, column 1:"},
      {"[1, x]", "line 1, column 5:"},
      {"{\n  \"a\": 1,\n  \"b\": x\n}", "line 3, column 8:"},
      {"\n\n]", "line 3, column 1:"},
      {"[\n1,\n\n2 3]", "line 4, column 3:"},
  };

  for (const auto& each : cases) {
    EXPECT_THAT(parseError(each.text), HasSubstr(each.place)) << each.text;
  }
}

TEST(JSONValueTest, AnErrorShowsForeignTextEscaped) {
  const std::string message = parseError("[\"\x1B[31m\"]");
  EXPECT_THAT(message, HasSubstr("line 1, column 3"));
  EXPECT_THAT(message, Not(HasSubstr("\x1B")));
}

TEST(JSONValueTest, NestingIsBoundedWithAClearError) {
  EXPECT_EQ(jsonText(JSONValue::parse(nested(512)), JSONLayout::compact), nested(512));
  EXPECT_EQ(parseError(nested(513)),
            "expected JSON nested at most 512 levels deep, found deeper nesting");
  EXPECT_EQ(parseError(std::string(513, '[')), parseError(nested(513)));
}

TEST(JSONValueTest, AMillionBracketsDoNoHarm) {
  EXPECT_THAT(parseError(nested(1000000)), HasSubstr("512 levels"));
  EXPECT_THAT(parseError(std::string(1000000, '[')), HasSubstr("512 levels"));
  std::string objects;
  for (int depth = 0; depth < 1000000; ++depth) {
    objects += "{\"a\":";
  }
  EXPECT_THAT(parseError(objects), HasSubstr("512 levels"));
}

TEST(JSONValueTest, AWholeNumberMayBeWrittenWithAPointOrAnExponent) {
  const struct {
    const char* digits;
    std::int64_t value;
  } cases[] = {
      {"0", 0},
      {"-0", 0},
      {"0.0", 0},
      {"-0.0e5", 0},
      {"0e999999999999", 0},
      {"5.0", 5},
      {"1e2", 100},
      {"1E+2", 100},
      {"1.50e1", 15},
      {"100e-2", 1},
      {"1200.0e-2", 12},
      {"-2.5e1", -25},
      {"9223372036854775807", std::numeric_limits<std::int64_t>::max()},
      {"9223372036854775807.0", std::numeric_limits<std::int64_t>::max()},
      {"9.223372036854775807e18", std::numeric_limits<std::int64_t>::max()},
      {"9223372036854775806.0", std::numeric_limits<std::int64_t>::max() - 1},
      {"-9223372036854775808", std::numeric_limits<std::int64_t>::min()},
      {"-9223372036854775808.00", std::numeric_limits<std::int64_t>::min()},
      {"-922337203685477580800e-2", std::numeric_limits<std::int64_t>::min()},
      {"9007199254740993.0", 9007199254740993},  // no double holds this one
      {"1e18", 1000000000000000000},
  };

  for (const auto& each : cases) {
    EXPECT_EQ(wholeNumber({each.digits}), each.value) << each.digits;
  }
}

TEST(JSONValueTest, AFractionAndWhatDoesNotFitAreNoWholeNumbers) {
  for (const char* digits :
       {"1.5", "0.1", "-0.0001", "1e-1", "15e-1", "1e-400", "9223372036854775808",
        "9223372036854775807.5", "9.2233720368547758071e18", "-9223372036854775809", "1e19",
        "1e300", "9223372036854775808.0", "-9223372036854775809e0", "1e-999999999999",
        "1e999999999999"}) {
    EXPECT_FALSE(wholeNumber({digits})) << digits;
  }
}

TEST(JSONValueTest, AHugeNumberOfZerosIsStillExact) {
  const std::string zeros(100000, '0');
  EXPECT_EQ(wholeNumber({"7" + zeros + "e-100000"}), 7);
  EXPECT_EQ(wholeNumber({"0." + zeros + "7e100001"}), 7);
  EXPECT_FALSE(wholeNumber({"7" + zeros}));
}

TEST(JSONValueTest, DescriptionsSayWhatStandsThere) {
  const struct {
    const char* text;
    const char* description;
  } cases[] = {
      {"null", "null"},
      {"true", "true"},
      {"false", "false"},
      {"1.50", "number 1.50"},
      {"\"abc\"", "text \"abc\""},
      {"\"a\\u001b\\n\"", "text \"a\\u{1b}\\n\""},
      {"[1]", "a list"},
      {"{}", "an object"},
  };

  for (const auto& each : cases) {
    EXPECT_EQ(JSONValue::parse(each.text).description(), each.description) << each.text;
  }
  EXPECT_EQ(JSONValue(std::string(60, 'x')).description(), "text \"" + std::string(60, 'x') + "\"");
  EXPECT_EQ(JSONValue(std::string(61, 'x')).description(),
            "text \"" + std::string(60, 'x') + "...\"");
}

}  // namespace
}  // namespace nodo
