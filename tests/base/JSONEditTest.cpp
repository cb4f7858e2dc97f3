#include <NODOCore/base/JSONValue.h>

#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace nodo {
namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

bool same(const std::string& left, const std::string& right) {
  const JSONValue first = JSONValue::parse(left);
  const JSONValue second = JSONValue::parse(right);
  EXPECT_EQ(sameValue(first, second), sameValue(second, first)) << left << " and " << right;
  return sameValue(first, second);
}

TEST(JSONEditTest, AMemberIsReplacedInItsPlace) {
  JSONValue value = JSONValue::parse(R"({"z": 1, "a": 2})");
  value.setMember("z", JSONValue(std::string("new")));
  EXPECT_EQ(jsonText(value, JSONLayout::compact), R"({"z":"new","a":2})");
}

TEST(JSONEditTest, AMemberThatIsNotThereIsAddedAtTheEnd) {
  JSONValue value = JSONValue::parse(R"({"z": 1})");
  value.setMember("a", JSONValue(true));
  EXPECT_EQ(jsonText(value, JSONLayout::compact), R"({"z":1,"a":true})");
}

TEST(JSONEditTest, OfANameThatOccursTwiceTheOneThatCountsIsReplacedAndAllAreRemoved) {
  JSONValue value = JSONValue::parse(R"({"a": 1, "b": 2, "a": 3})");
  value.setMember("a", JSONValue(std::int64_t{4}));
  EXPECT_EQ(jsonText(value, JSONLayout::compact), R"({"a":1,"b":2,"a":4})");
  value.removeMember("a");
  EXPECT_EQ(jsonText(value, JSONLayout::compact), R"({"b":2})");
  value.removeMember("none");
  EXPECT_EQ(jsonText(value, JSONLayout::compact), R"({"b":2})");
}

TEST(JSONEditTest, AValueInsideCanBeChangedWhereItStands) {
  JSONValue value = JSONValue::parse(R"({"a": [1, {"b": 2}]})");
  (*value.member("a")->array())[1].setMember("b", JSONValue());
  value.member("a")->array()->erase(value.member("a")->array()->begin());
  EXPECT_EQ(jsonText(value, JSONLayout::compact), R"({"a":[{"b":null}]})");
  EXPECT_EQ(value.member("none"), nullptr);
}

TEST(JSONEditTest, ValuesThatSayTheSameAreTheSameHoweverTheyAreWritten) {
  for (const auto& [left, right] : Pairs{{"5", "5.0"},
                                         {"5", "50e-1"},
                                         {"-0", "0.000"},
                                         {"0e5", "0E-9999999999999"},
                                         {"1.10", "1.1"},
                                         {"1e2", "100"},
                                         {"12345678901234567890", "12345678901234567890.0"},
                                         {R"({"a": 1, "b": 2})", R"({"b": 2, "a": 1})"},
                                         {R"({"a": 1, "a": 2})", R"({"a": 2})"},
                                         {R"([{"a": [5]}])", R"([{"a": [5.0]}])"},
                                         {R"("\u00e9")", "\"\u00E9\""},
                                         {"[]", "[ ]"},
                                         {"null", "null"}}) {
    EXPECT_TRUE(same(left, right)) << left << " and " << right;
  }
}

TEST(JSONEditTest, ValuesThatDifferAreNotTheSame) {
  for (const auto& [left, right] : Pairs{{"5", "-5"},
                                         {"5", "50"},
                                         {"5", "\"5\""},
                                         {"12345678901234567890", "12345678901234567891"},
                                         {"0.1", "0.10000000000000000000000000001"},
                                         {"1", "true"},
                                         {"0", "null"},
                                         {"[]", "{}"},
                                         {"[1, 2]", "[2, 1]"},
                                         {"[1]", "[1, 1]"},
                                         {R"({"a": 1})", R"({"a": 1, "b": 2})"},
                                         {R"({"a": 1})", R"({"b": 1})"},
                                         {R"("e\u0301")", R"("\u00e9")"}}) {
    EXPECT_FALSE(same(left, right)) << left << " and " << right;
  }
}

}  // namespace
}  // namespace nodo
