#include <NODOCore/base/Errors.h>
#include <NODOCore/helper/HelperConnection.h>
#include <NODOCore/helper/NODOHelperXPCClient.h>
#include <programs/nodoctl/StateAccess.h>
#include <testing/FakeHelper.h>

#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace nodo::nodoctl {
namespace {

Unavailability unavailabilityFrom(const std::exception& error) {
  return Unavailability::from(error, [] { return std::nullopt; });
}

TEST(StateAccessTest, OnlyADaemonThatWasNotFoundIsNotBroken) {
  const auto isBroken = [](const std::exception& error) {
    return unavailabilityFrom(error).isBroken;
  };
  EXPECT_FALSE(isBroken(HelperConnectionError("not running", false)));
  EXPECT_FALSE(isBroken(NODOHelperClientError::unavailable("connection invalidated", false)));
  EXPECT_FALSE(isBroken(std::runtime_error("no way there")));

  EXPECT_TRUE(isBroken(HelperConnectionError("ended", true)));
  EXPECT_TRUE(isBroken(NODOHelperClientError::unavailable("connection interrupted")));
  EXPECT_TRUE(isBroken(NODOHelperClientError::unavailable("the state cannot be read")));
  EXPECT_TRUE(isBroken(NODOHelperClientError::invalidResponse("missing status report")));
  EXPECT_TRUE(isBroken(NODOHelperClientError::timedOut()));
  EXPECT_TRUE(isBroken(DecodingError("status", "an object", "number 7")));
}

TEST(StateAccessTest, AConnectionsOwnWordsAreTheReason) {
  EXPECT_EQ(unavailabilityFrom(HelperConnectionError("not running", false)).reason, "not running");
  EXPECT_EQ(unavailabilityFrom(HelperConnectionError("ended", true)).reason, "ended");
}

TEST(StateAccessTest, ADaemonThatRefusesThisProgramIsTheReasonWhyItCannotBeReached) {
  const auto refusal = [] { return std::optional<std::string>("of another team"); };
  const auto refused = Unavailability::from(
      NODOHelperClientError::unavailable("connection invalidated", false), refusal);
  EXPECT_EQ(refused.reason, "of another team");
  EXPECT_TRUE(refused.isBroken);
  EXPECT_EQ(Unavailability::from(NODOHelperClientError::timedOut(), refusal).reason,
            "Helper request timed out");
}

// A daemon of which each answer takes its time, by a clock that nothing else moves.
class BudgetedConnectingTest : public ::testing::Test {
 protected:
  // Makes the client, whose time with the daemon begins.
  NODOHelperXPCClient& clientWith(double limit) {
    client.timeout = limit;
    client.connecting = std::make_shared<BudgetedConnecting>(
        helper, client.timeout, [this] { return BudgetedConnecting::Clock::time_point(clock); });
    return client;
  }

  // From now on requests of that name are answered after so long.
  void delay(const std::string& request, std::chrono::milliseconds time, bool fails = false) {
    helper->answer(request, [this, time, fails](const test::FakeHelperRequest& asked) {
      limits.push_back(client.timeout);
      clock += time;
      if (fails) {
        asked.fail("unknown request");
      } else {
        asked.reply(StatusReport());
      }
    });
  }

  std::shared_ptr<test::FakeHelper> helper = std::make_shared<test::FakeHelper>();
  NODOHelperXPCClient client{"some.service", 0, nullptr};
  std::chrono::milliseconds clock{0};
  std::vector<double> limits;  ///< of each request, when it was sent
};

TEST_F(BudgetedConnectingTest, EachRequestMayWaitForWhatTheOnesBeforeItLeft) {
  delay("status", std::chrono::milliseconds(250));
  clientWith(1).status();
  client.status();
  client.status();
  EXPECT_EQ(limits, (std::vector<double>{1, 0.75, 0.5}));
}

TEST_F(BudgetedConnectingTest, SlowAnswersTakeNoLongerThanOneAltogether) {
  delay("enableManualV2", std::chrono::milliseconds(900), true);
  delay("status", std::chrono::milliseconds(900));
  delay("enableManual", std::chrono::milliseconds(900));
  EXPECT_THROW(clientWith(1).enableManual(20, true, std::nullopt, Date()), NODOHelperClientError);
  ASSERT_EQ(limits.size(), 2U);  // so the client waited for 0.9 s and then for 0.1 s at most
  EXPECT_DOUBLE_EQ(limits[0], 1);
  EXPECT_DOUBLE_EQ(limits[1], 0.1);
}

TEST_F(BudgetedConnectingTest, OnceTheTimeIsUsedUpNobodyIsAsked) {
  delay("status", std::chrono::milliseconds(1000));
  clientWith(1).status();
  try {
    client.status();
    ADD_FAILURE() << "it was asked";
  } catch (const NODOHelperClientError& error) {
    EXPECT_EQ(error, NODOHelperClientError::timedOut());
  }
  EXPECT_EQ(helper->requests(), (std::vector<std::string>{"status"}));
  EXPECT_EQ(helper->openConnections(), 0U);
}

TEST_F(BudgetedConnectingTest, AnEarlyFailureLeavesTheTimeToTheNextRequest) {
  helper->answer("status", [](const test::FakeHelperRequest& asked) { asked.interrupt(); });
  delay("stop", std::chrono::milliseconds(1));
  EXPECT_THROW(clientWith(1).status(), NODOHelperClientError);
  client.stop();
  EXPECT_EQ(limits, (std::vector<double>{1}));
}

}  // namespace
}  // namespace nodo::nodoctl
