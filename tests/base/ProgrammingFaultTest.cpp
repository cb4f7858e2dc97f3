#include <NODOCore/base/Errors.h>

#include <cstdint>
#include <limits>

#include <gtest/gtest.h>

namespace nodo {
namespace {

constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t smallest = std::numeric_limits<std::int64_t>::min();

TEST(ProgrammingFaultDeathTest, StopsTheProcessAfterOneLine) {
  EXPECT_DEATH(programmingFault("the sky fell"), "^nodo: programming fault: the sky fell\n$");
}

TEST(ProgrammingFaultDeathTest, ADifferenceThatDoesNotFitIsOne) {
  EXPECT_DEATH(checkedDifference(smallest, 1), "does not fit in 64 bits");
  EXPECT_DEATH(checkedDifference(largest, -1), "does not fit in 64 bits");
  EXPECT_DEATH(checkedDifference(0, smallest), "does not fit in 64 bits");
}

TEST(ProgrammingFaultTest, ADifferenceThatFitsIsExact) {
  EXPECT_EQ(checkedDifference(largest, 0), largest);
  EXPECT_EQ(checkedDifference(smallest, -1), smallest + 1);
  EXPECT_EQ(checkedDifference(-1, largest), smallest);
}

}  // namespace
}  // namespace nodo
