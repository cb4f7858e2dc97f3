#include <NODOCore/hooks/HookScript.h>
#include <testing/JSONRows.h>

#include <string>

#include <gtest/gtest.h>

namespace nodo {
namespace {

using test::testRows;
using test::valueOf;

TEST(FingerprintTest, ItIsTheHashOfTheBytes) {
  for (const JSONValue& row : testRows("vectors/fnv1a64.json")) {
    const auto text = valueOf<std::string>(row, "text");
    EXPECT_EQ(fingerprint(text), valueOf<std::string>(row, "hex")) << text.substr(0, 80);
  }
}

TEST(FingerprintTest, TheEmptyTextHasTheStartValue) {
  EXPECT_EQ(fingerprint(""), "cbf29ce484222325");
}

TEST(FingerprintTest, ZeroBytesCount) {
  EXPECT_NE(fingerprint(std::string("a\0", 2)), fingerprint("a"));
}

}  // namespace
}  // namespace nodo
