#include <NODOCore/base/Errors.h>
#include <NODOCore/base/JSONCoding.h>

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace nodo {

enum class Colour { red, darkBlue };

template <>
struct EnumTexts<Colour> {
  static constexpr std::array cases{EnumText{Colour::red, "red"},
                                    EnumText{Colour::darkBlue, "dark_blue"}};
};

namespace {

struct Part {
  std::string name;
  std::optional<std::int64_t> count;

  bool operator==(const Part&) const = default;
};

struct Whole {
  bool on = false;
  std::int32_t code = 0;
  std::int64_t size = 7;
  Date at;
  Colour colour = Colour::red;
  std::optional<Part> part;
  std::vector<Part> parts;
  std::map<std::string, bool> flags;

  bool operator==(const Whole&) const = default;
};

NODO_JSON_RECORD(Part, fields, part) {
  fields.required("name", part.name);
  fields.optional("count", part.count);
}

NODO_JSON_RECORD(Whole, fields, whole) {
  fields.required("on", whole.on);
  fields.required("code", whole.code);
  fields.defaulted("size", whole.size);
  fields.required("at", whole.at);
  fields.required("colour", whole.colour);
  fields.optional("part", whole.part);
  fields.defaulted("parts", whole.parts);
  fields.defaulted("flags", whole.flags);
}

const std::string minimal = R"("on":true,"code":1,"at":"2026-01-31T08:15:00Z","colour":"red")";

// The smallest valid document and `more`, whose keys come last and so count.
Whole decodeWith(const std::string& more) {
  return decodeJSON<Whole>("{" + minimal + more + "}");
}

std::string errorWith(const std::string& more) {
  try {
    decodeWith(more);
  } catch (const DecodingError& error) {
    return error.what();
  }
  return "no error";
}

TEST(JSONCodingTest, ARecordComesBackEqual) {
  const Whole whole{.on = true,
                    .code = -2147483647 - 1,
                    .size = 9223372036854775807,
                    .at = dateFromSeconds(1769847300),
                    .colour = Colour::darkBlue,
                    .part = Part{"p", 5},
                    .parts = {{"a", std::nullopt}, {"", -1}},
                    .flags = {{"x", true}, {"y", false}}};
  for (const JSONLayout layout :
       {JSONLayout::compact, JSONLayout::pretty, JSONLayout::prettySorted}) {
    EXPECT_EQ(decodeJSON<Whole>(encodeJSON(whole, layout)), whole);
  }
}

TEST(JSONCodingTest, AbsentFieldsAreLeftOutAndEmptyListsAreWritten) {
  EXPECT_EQ(encodeJSON(decodeWith(""), JSONLayout::compact),
            R"({"on":true,"code":1,"size":7,"at":"2026-01-31T08:15:00Z","colour":"red","parts":[],)"
            R"("flags":{}})");
}

TEST(JSONCodingTest, WholeNumbersMayHaveAPointOrAnExponent) {
  EXPECT_EQ(decodeWith(R"(,"size":1.0)").size, 1);
  EXPECT_EQ(decodeWith(R"(,"size":1e2,"code":-3.0)").size, 100);
  EXPECT_EQ(decodeWith(R"(,"code":-3.0)").code, -3);
}

TEST(JSONCodingTest, NothingElseIsAWholeNumber) {
  for (const std::string value : {"1.5", "true", "false", "\"1\"", "[1]", "{}", "1e19"}) {
    EXPECT_EQ(errorWith(",\"size\":" + value),
              "size: expected a whole number of at most 64 bits, found " +
                  JSONValue::parse(value).description());
  }
}

TEST(JSONCodingTest, A32BitNumberHasExactLimits) {
  EXPECT_EQ(decodeWith(R"(,"code":2147483647)").code, 2147483647);
  EXPECT_EQ(decodeWith(R"(,"code":-2147483648)").code, -2147483647 - 1);
  EXPECT_EQ(errorWith(R"(,"code":2147483648)"),
            "code: expected a whole number of at most 32 bits, found number 2147483648");
  EXPECT_EQ(errorWith(R"(,"code":-2147483649)"),
            "code: expected a whole number of at most 32 bits, found number -2147483649");
}

TEST(JSONCodingTest, ZeroAndOneAreNoBooleans) {
  EXPECT_EQ(errorWith(R"(,"on":0)"), "on: expected true or false, found number 0");
  EXPECT_EQ(errorWith(R"(,"on":1)"), "on: expected true or false, found number 1");
  EXPECT_EQ(errorWith(R"(,"on":"true")"), "on: expected true or false, found text \"true\"");
}

TEST(JSONCodingTest, OnlyATextIsAText) {
  EXPECT_EQ(errorWith(R"(,"part":{"name":5})"), "part.name: expected a text, found number 5");
  EXPECT_EQ(errorWith(R"(,"part":{"name":["x"]})"), "part.name: expected a text, found a list");
}

TEST(JSONCodingTest, ADateIsATextInItsOneForm) {
  const std::string expected = "at: expected a date such as \"2026-01-31T08:15:00Z\", found ";
  EXPECT_EQ(errorWith(R"(,"at":1769847300)"), expected + "number 1769847300");
  EXPECT_EQ(errorWith(R"(,"at":"2026-01-31")"), expected + "text \"2026-01-31\"");
  EXPECT_EQ(decodeWith(R"(,"at":"2026-01-31T09:15:00+01:00")").at, decodeWith("").at);
}

TEST(JSONCodingTest, AnEnumerationTakesItsTextsOnly) {
  EXPECT_EQ(decodeWith(R"(,"colour":"dark_blue")").colour, Colour::darkBlue);
  const std::string expected = R"(colour: expected one of "red" "dark_blue", found )";
  EXPECT_EQ(errorWith(R"(,"colour":"green")"), expected + "text \"green\"");
  EXPECT_EQ(errorWith(R"(,"colour":"Red")"), expected + "text \"Red\"");
  EXPECT_EQ(errorWith(R"(,"colour":0)"), expected + "number 0");
}

TEST(JSONCodingTest, NullCountsAsAbsentWhereAFieldMayBe) {
  EXPECT_EQ(decodeWith(R"(,"part":null,"size":null,"parts":null,"flags":null)"), decodeWith(""));
  EXPECT_EQ(decodeWith(R"(,"part":{"name":"n","count":null})").part, (Part{"n", std::nullopt}));
}

TEST(JSONCodingTest, NullInARequiredFieldIsAnError) {
  EXPECT_EQ(errorWith(R"(,"on":null)"), "on: expected true or false, found null");
  EXPECT_EQ(errorWith(R"(,"parts":[null])"), "parts[0]: expected an object, found null");
  EXPECT_EQ(errorWith(R"(,"flags":{"x":null})"), "flags.x: expected true or false, found null");
}

TEST(JSONCodingTest, AMissingRequiredFieldIsNamed) {
  EXPECT_EQ(errorWith(R"(,"part":{})"), "part.name: expected a value, found nothing");
  EXPECT_EQ(errorWith(R"(,"parts":[{"name":"a"},{"count":1}])"),
            "parts[1].name: expected a value, found nothing");
  EXPECT_THROW(decodeJSON<Whole>("{}"), DecodingError);
}

TEST(JSONCodingTest, TheOutermostValueHasNoPath) {
  try {
    decodeJSON<Whole>("[]");
    FAIL() << "a list is no record";
  } catch (const DecodingError& error) {
    EXPECT_EQ(error.path(), "");
    EXPECT_STREQ(error.what(), "expected an object, found a list");
  }
  try {
    decodeJSON<std::vector<Part>>(R"([{"name":"a"},5])");
    FAIL() << "a number is no record";
  } catch (const DecodingError& error) {
    EXPECT_EQ(error.path(), "[1]");
  }
}

TEST(JSONCodingTest, ContainersAreStrictToo) {
  EXPECT_EQ(errorWith(R"(,"parts":{})"), "parts: expected a list, found an object");
  EXPECT_EQ(errorWith(R"(,"flags":[])"), "flags: expected an object, found a list");
  EXPECT_EQ(errorWith(R"(,"part":"x")"), "part: expected an object, found text \"x\"");
}

TEST(JSONCodingTest, UnknownKeysAreIgnored) {
  EXPECT_EQ(decodeWith(R"(,"future":{"x":[1,2]},"On":5)"), decodeWith(""));
}

TEST(JSONCodingTest, TheLastOfEqualKeysCounts) {
  EXPECT_FALSE(decodeWith(R"(,"on":5,"on":false)").on);
  EXPECT_FALSE(decodeWith(R"(,"flags":{"x":true,"x":false})").flags.at("x"));
  EXPECT_EQ(errorWith(R"(,"on":true,"on":5)"), "on: expected true or false, found number 5");
}

TEST(JSONCodingTest, AnErrorShowsForeignTextShortAndEscaped) {
  EXPECT_EQ(errorWith(",\"at\":\"\\u001b[2J" + std::string(100, 'x') + "\""),
            "at: expected a date such as \"2026-01-31T08:15:00Z\", found text \"\\u{1b}[2J" +
                std::string(56, 'x') + "...\"");
}

TEST(JSONCodingTest, DecodingReplacesWhatTheRecordHeldBefore) {
  const JSONDocument document(R"([{"name":"new"}])");
  std::vector<Part> parts = {{"old", 1}, {"older", 2}};
  decode(JSONReader(document), parts);
  EXPECT_EQ(parts, (std::vector<Part>{{"new", std::nullopt}}));

  const JSONDocument smallest("{" + minimal + "}");
  Whole whole{.size = 8, .parts = parts, .flags = {{"x", true}}};
  decode(JSONReader(smallest), whole);
  EXPECT_EQ(whole, decodeWith(""));
}

}  // namespace
}  // namespace nodo
