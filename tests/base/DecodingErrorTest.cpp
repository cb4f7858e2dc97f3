#include <NODOCore/base/Errors.h>

#include <gtest/gtest.h>

namespace nodo {
namespace {

TEST(DecodingErrorTest, ItSaysWhereWhatAndWhatInstead) {
  const DecodingError error("lastRequester.requestedAt", "a date", "number 5");
  EXPECT_STREQ(error.what(), "lastRequester.requestedAt: expected a date, found number 5");
  EXPECT_EQ(error.path(), "lastRequester.requestedAt");
  EXPECT_STREQ(DecodingError("", "an object", "a list").what(), "expected an object, found a list");
}

TEST(DecodingErrorTest, ItCanNameTheFile) {
  const DecodingError error = DecodingError("a.b", "a date", "number 5").inFile("/some/file");
  EXPECT_STREQ(error.what(), "/some/file: a.b: expected a date, found number 5");
  EXPECT_EQ(error.path(), "a.b");
}

TEST(DecodingErrorTest, AReaderCanSayItInItsOwnWords) {
  const DecodingError error = DecodingError("a.b", "a date", "number 5").saying("no good");
  EXPECT_STREQ(error.what(), "no good");
  EXPECT_EQ(error.path(), "a.b");
}

TEST(DecodingErrorTest, ErrorsAreEqualByWhatTheySay) {
  EXPECT_EQ(DecodingError("a", "b", "c"), DecodingError("a", "b", "c"));
  EXPECT_FALSE(DecodingError("a", "b", "c") == DecodingError("x", "b", "c"));
  EXPECT_FALSE(DecodingError("a", "b", "c") == DecodingError("a", "b", "x"));
}

}  // namespace
}  // namespace nodo
