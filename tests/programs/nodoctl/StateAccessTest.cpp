#include <NODOCore/base/Errors.h>
#include <NODOCore/helper/HelperConnection.h>
#include <NODOCore/helper/NODOHelperXPCClient.h>
#include <programs/nodoctl/helper/StateAccess.h>

#include <stdexcept>

#include <gtest/gtest.h>

namespace nodo::nodoctl {
namespace {

TEST(StateAccessTest, OnlyADaemonThatWasNotFoundIsNotBroken) {
  const auto isBroken = [](const std::exception& error) {
    return Unavailability::from(error).isBroken;
  };
  EXPECT_FALSE(isBroken(HelperConnectionError("not running", false)));
  EXPECT_FALSE(isBroken(NODOHelperClientError::unavailable("connection invalidated")));
  EXPECT_FALSE(isBroken(std::runtime_error("no way there")));

  EXPECT_TRUE(isBroken(HelperConnectionError("ended", true)));
  EXPECT_TRUE(isBroken(NODOHelperClientError::unavailable("connection interrupted")));
  EXPECT_TRUE(isBroken(NODOHelperClientError::unavailable("the state cannot be read")));
  EXPECT_TRUE(isBroken(NODOHelperClientError::invalidResponse("missing status report")));
  EXPECT_TRUE(isBroken(NODOHelperClientError::timedOut()));
  EXPECT_TRUE(isBroken(DecodingError("status", "an object", "number 7")));
}

TEST(StateAccessTest, AConnectionsOwnWordsAreTheReason) {
  EXPECT_EQ(Unavailability::from(HelperConnectionError("not running", false)).reason,
            "not running");
  EXPECT_EQ(Unavailability::from(HelperConnectionError("ended", true)).reason, "ended");
}

}  // namespace
}  // namespace nodo::nodoctl
