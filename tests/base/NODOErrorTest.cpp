#include <NODOCore/base/Errors.h>

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

}  // namespace
}  // namespace nodo
