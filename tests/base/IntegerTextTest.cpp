#include <NODOCore/base/Text.h>
#include <testing/JSONRows.h>

#include <cstdint>
#include <limits>
#include <string>

#include <gtest/gtest.h>

namespace nodo {
namespace {

using test::optionalOf;
using test::testRows;
using test::valueOf;

TEST(IntegerTextTest, TakesASignAndDecimalDigitsOnly) {
  for (const JSONValue& row : testRows("vectors/integer_texts.json")) {
    const auto text = valueOf<std::string>(row, "text");
    EXPECT_EQ(integerFromText<std::int32_t>(text), optionalOf<std::int32_t>(row, "int32")) << text;
    EXPECT_EQ(integerFromText<std::int64_t>(text), optionalOf<std::int64_t>(row, "int64")) << text;
  }
  for (const char* text : {"", "+", " 5", "5\n", "1e2", "5_0", "--5", "-+5", "5-"}) {
    EXPECT_FALSE(integerFromText<std::int64_t>(text)) << '"' << text << '"';
  }
}

// The limits, and everything within ten of them on either side.
template <class Integer>
void expectExactLimits() {
  constexpr Integer largest = std::numeric_limits<Integer>::max();
  constexpr Integer smallest = std::numeric_limits<Integer>::min();
  for (int distance = 0; distance <= 10; ++distance) {
    const auto high = static_cast<Integer>(largest - distance);
    const auto low = static_cast<Integer>(smallest + distance);
    EXPECT_EQ(integerFromText<Integer>(std::to_string(high)), high);
    EXPECT_EQ(integerFromText<Integer>("+" + std::to_string(high)), high);
    EXPECT_EQ(integerFromText<Integer>(std::to_string(low)), low);
  }
  const auto beyond = [](std::uint64_t magnitude, int distance) {
    return std::to_string(magnitude + static_cast<std::uint64_t>(distance));
  };
  for (int distance = 1; distance <= 10; ++distance) {
    const auto magnitude = static_cast<std::uint64_t>(largest);
    EXPECT_FALSE(integerFromText<Integer>(beyond(magnitude, distance)));
    EXPECT_FALSE(integerFromText<Integer>("-" + beyond(magnitude + 1, distance)));
  }
}

TEST(IntegerTextTest, TheLimitsOf32BitsAreExact) {
  expectExactLimits<std::int32_t>();
}

TEST(IntegerTextTest, TheLimitsOf64BitsAreExact) {
  expectExactLimits<std::int64_t>();
}

TEST(IntegerTextTest, DigitsWithoutEndNeitherOverflowNorFit) {
  EXPECT_FALSE(integerFromText<std::int64_t>(std::string(100000, '9')));
  EXPECT_FALSE(integerFromText<std::int64_t>("-" + std::string(100000, '9')));
  EXPECT_EQ(integerFromText<std::int64_t>(std::string(100000, '0') + "7"), 7);
}

}  // namespace
}  // namespace nodo
