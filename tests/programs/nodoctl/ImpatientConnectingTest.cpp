#include <NODOCore/helper/NODOHelperXPCClient.h>
#include <programs/nodoctl/helper/ImpatientConnecting.h>
#include <testing/FakeHelper.h>

#include <memory>
#include <string>
#include <system_error>
#include <utility>

#include <gtest/gtest.h>

namespace nodo::nodoctl {
namespace {

enum class Failure { none, resuming, proxy };

// A connection for which the system lacks something.
class LackingConnection : public HelperConnection {
 public:
  LackingConnection(std::unique_ptr<HelperConnection> connection, Failure failure)
      : connection_(std::move(connection)), failure_(failure) {}

  void setInvalidationHandler(Handler handler) override {
    connection_->setInvalidationHandler(std::move(handler));
  }

  void setInterruptionHandler(Handler handler) override {
    connection_->setInterruptionHandler(std::move(handler));
  }

  void resume() override {
    failAt(Failure::resuming);
    connection_->resume();
  }

  std::shared_ptr<NODOHelperXPCProtocol> remoteProxy(ErrorHandler errorHandler) override {
    failAt(Failure::proxy);
    return connection_->remoteProxy(std::move(errorHandler));
  }

  void invalidate() override { connection_->invalidate(); }

 private:
  void failAt(Failure step) const {
    if (failure_ == step) {
      throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again),
                              "no further thread");
    }
  }

  std::unique_ptr<HelperConnection> connection_;
  Failure failure_;
};

class LackingConnecting : public HelperConnecting {
 public:
  test::FakeHelper helper;
  Failure failure = Failure::none;

  std::unique_ptr<HelperConnection> privilegedConnection(
      const std::string& machServiceName) const override {
    return std::make_unique<LackingConnection>(helper.privilegedConnection(machServiceName),
                                               failure);
  }
};

class ImpatientConnectingTest : public ::testing::Test {
 protected:
  std::string outcomeOf(Failure failure) {
    connecting->failure = failure;
    try {
      client.status();
      return "ok";
    } catch (const std::exception& error) {
      return error.what();
    }
  }

  std::shared_ptr<LackingConnecting> connecting = std::make_shared<LackingConnecting>();
  NODOHelperXPCClient client{"some.service", 60, std::make_shared<ImpatientConnecting>(connecting)};
};

TEST_F(ImpatientConnectingTest, WhatWasNeverSentWasNotWaitedFor) {
  for (const Failure failure : {Failure::resuming, Failure::proxy}) {
    EXPECT_TRUE(outcomeOf(failure).starts_with("no further thread: "));
  }
  connecting->helper.offersProtocol = false;
  EXPECT_EQ(outcomeOf(Failure::none), "Helper unavailable: unable to create XPC proxy");
  connecting->helper.offersProtocol = true;
  EXPECT_EQ(outcomeOf(Failure::none), "ok");
}

TEST_F(ImpatientConnectingTest, OneThatWasWaitedForInVainIsTheLast) {
  connecting->helper.answer("status", [](const test::FakeHelperRequest&) {});
  client.timeout = 0.01;
  EXPECT_EQ(outcomeOf(Failure::none), "Helper request timed out");
  EXPECT_EQ(outcomeOf(Failure::resuming), "Helper request timed out");
  EXPECT_EQ(connecting->helper.requests().size(), 1U);
}

}  // namespace
}  // namespace nodo::nodoctl
