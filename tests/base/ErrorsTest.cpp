#include <NODOCore/base/Errors.h>

#include <cstdint>
#include <limits>

#include <gtest/gtest.h>

namespace nodo {
namespace {

TEST(NODOErrorTest, TheDetailEndsTheMessageAsItStands) {
  EXPECT_STREQ(NODOError::processListingFailed("ps: no\n").what(),
               "Unable to list processes: ps: no\n");
  EXPECT_STREQ(NODOError::invalidDuration("minutes must be <= 60").what(),
               "Invalid duration: minutes must be <= 60");
  EXPECT_STREQ(NODOError::invalidCommand("").what(), "Invalid command: ");
  EXPECT_STREQ(NODOError::stateDirectoryUnavailable().what(),
               "Unable to resolve nodo state directory");
}

TEST(NODOErrorTest, ErrorsAreEqualByCaseAndDetail) {
  EXPECT_EQ(NODOError::invalidDuration("a"), NODOError::invalidDuration("a"));
  EXPECT_FALSE(NODOError::invalidDuration("a") == NODOError::invalidDuration("b"));
  EXPECT_FALSE(NODOError::invalidDuration("a") == NODOError::invalidCommand("a"));
  EXPECT_EQ(NODOError::stateDirectoryUnavailable(), NODOError::stateDirectoryUnavailable());
}

TEST(NODOErrorTest, ItIsCaughtAsAStandardException) {
  try {
    throw NODOError::invalidCommand("no such thing");
  } catch (const std::exception& error) {
    EXPECT_STREQ(error.what(), "Invalid command: no such thing");
  }
  const NODOError error = NODOError::invalidCommand("no such thing");
  EXPECT_EQ(error.errorCase(), NODOError::Case::invalidCommand);
  EXPECT_EQ(error.detail(), "no such thing");
}

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

TEST(DecodingErrorTest, ItsLineIsAValueThatItsWordsNeedNotHold) {
  const DecodingError error("a.b", "a date", "number 5");
  EXPECT_EQ(error.line(), std::nullopt);
  const DecodingError placed = error.atLine(7);
  EXPECT_EQ(placed.line(), 7);
  EXPECT_STREQ(placed.what(), error.what());
  EXPECT_EQ(placed.inFile("/some/file").line(), 7);
  EXPECT_EQ(placed.saying("no good").line(), 7);
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
