#include <NODOCore/base/Date.h>
#include <testing/TestData.h>

#include <string>

#include <gtest/gtest.h>

namespace nodo {
namespace {

TEST(DurationTextTest, IsAsTheReferenceValuesSay) {
  int checked = 0;
  const JSONValue rows = test::testData("vectors/durations.json");
  for (const JSONValue& row : *rows.array()) {
    const JSONValue& expected = *row.member("doctor");
    if (!expected.isNull()) {  // null where the number is not positive
      EXPECT_EQ(durationText(std::stoll(row.member("seconds")->number()->digits)),
                *expected.text());
      ++checked;
    }
  }
  EXPECT_GT(checked, 10);
}

}  // namespace
}  // namespace nodo
