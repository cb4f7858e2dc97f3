#include <NODOCore/base/Errors.h>
#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/helper/NODOHelperXPCProtocol.h>

#include <chrono>
#include <cmath>
#include <exception>
#include <limits>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <tests/helper/HelperClientFixture.h>

namespace nodo {
namespace {

class NODOHelperXPCClientTest : public HelperClientFixture {};

TEST_F(NODOHelperXPCClientTest, EveryRequestReturnsItsReport) {
  helper->answer("stop", [&](const auto& request) { request.reply(reportWithStopReason("s")); });
  helper->answer("repair", [&](const auto& request) { request.reply(reportWithStopReason("r")); });
  helper->answer("enableManual",
                 [&](const auto& request) { request.reply(reportWithStopReason("m")); });
  EXPECT_EQ(client.status(), helper->status);
  EXPECT_EQ(client.stop(), reportWithStopReason("s"));
  EXPECT_EQ(client.repair(), reportWithStopReason("r"));
  EXPECT_EQ(client.reconcile(), helper->run);
  EXPECT_EQ(client.enableManual(20, false, std::nullopt, noon), reportWithStopReason("m"));
  EXPECT_EQ(helper->requests(),
            (Texts{"status", "stop", "repair", "reconcile", "enableManual 20"}));
}

TEST_F(NODOHelperXPCClientTest, ARequestTakesItsStepsInOrder) {
  client.status();
  EXPECT_EQ(helper->steps(),
            (Texts{"connect some.service", "set invalidation handler", "set interruption handler",
                   "resume", "proxy", "send status", "invalidate"}));
}

TEST_F(NODOHelperXPCClientTest, EveryRequestHasAConnectionOfItsOwn) {
  client.machServiceName = "first";
  client.stop();
  client.machServiceName = "second";
  client.reconcile();
  const Texts steps = helper->steps();
  ASSERT_EQ(steps.size(), 14U);
  EXPECT_EQ(steps[0], "connect first");
  EXPECT_EQ(steps[6], "invalidate");
  EXPECT_EQ(steps[7], "connect second");
  EXPECT_EQ(steps[13], "invalidate");
}

TEST_F(NODOHelperXPCClientTest, WithoutAProxyItFailsWithoutWaiting) {
  helper->offersProtocol = false;
  EXPECT_EQ(outcomeOfStatus(), "Helper unavailable: unable to create XPC proxy");
  EXPECT_EQ(helper->steps(), (Texts{"connect some.service", "set invalidation handler",
                                    "set interruption handler", "resume", "proxy", "invalidate"}));
}

TEST_F(NODOHelperXPCClientTest, AnErrorOfConnectingIsThrownAsItIs) {
  helper->refusal = "no bus";
  EXPECT_EQ(outcomeOfStatus(), "no bus");
  EXPECT_EQ(helper->steps(), Texts{});
}

TEST_F(NODOHelperXPCClientTest, AServiceThatIsNotInstalledIsUnavailable) {
  helper->isInstalled = false;
  helper->answer("status", [](const auto&) {});
  EXPECT_EQ(outcomeOfStatus(), "Helper unavailable: connection invalidated");
}

TEST_F(NODOHelperXPCClientTest, ARepliedRequestIsNotTakenForAnInvalidatedOne) {
  helper->answer("status", [&](const auto& request) {
    request.reply(helper->status);
    request.invalidate();
    request.interrupt();
    request.fail("late");
  });
  EXPECT_EQ(client.status(), helper->status);
}

TEST_F(NODOHelperXPCClientTest, TheFirstOutcomeIsTheOneThatCounts) {
  const struct {
    const char* name;
    FakeHelper::Answer answer;
    const char* expected;
  } cases[] = {
      {"interrupted, then invalidated and replied",
       [&](const auto& request) {
         request.interrupt();
         request.invalidate();
         request.reply(helper->status);
       },
       "Helper unavailable: connection interrupted"},
      {"invalidated, then interrupted",
       [](const auto& request) {
         request.invalidate();
         request.interrupt();
       },
       "Helper unavailable: connection invalidated"},
      {"failed, then invalidated",
       [](const auto& request) {
         request.fail("undeliverable");
         request.invalidate();
       },
       "undeliverable"},
      {"refused, then replied",
       [&](const auto& request) {
         request.refuse("busy");
         request.reply(helper->status);
       },
       "Helper unavailable: busy"},
      {"replied twice",
       [&](const auto& request) {
         request.reply(helper->status);
         request.refuse("busy");
       },
       "ok"},
  };

  for (const auto& each : cases) {
    helper->answer("status", each.answer);
    EXPECT_EQ(outcomeOfStatus(), each.expected) << each.name;
  }
  EXPECT_EQ(helper->openConnections(), 0U);
}

TEST_F(NODOHelperXPCClientTest, AnErrorOfTheProxyIsThrownUnchanged) {
  struct Foreign {
    int code;
  };

  helper->answer("status", [](const auto& request) {
    request.fail(std::make_exception_ptr(Foreign{.code = 4097}));
  });
  try {
    client.status();
    FAIL() << "there was a status";
  } catch (const Foreign& error) {
    EXPECT_EQ(error.code, 4097);
  }
  EXPECT_EQ(helper->openConnections(), 0U);
}

TEST_F(NODOHelperXPCClientTest, AnInterruptionDuringTheWaitEndsIt) {
  std::thread other;
  helper->answer("status", [&](const FakeHelperRequest& request) {
    other = std::thread([request] { request.interrupt(); });
  });
  EXPECT_EQ(outcomeOfStatus(), "Helper unavailable: connection interrupted");
  other.join();
}

TEST_F(NODOHelperXPCClientTest, AReplyFromAnotherThreadEndsTheWait) {
  std::thread other;
  helper->answer("status", [&](const FakeHelperRequest& request) {
    other = std::thread([&, request] { request.reply(helper->status); });
  });
  EXPECT_EQ(client.status(), helper->status);
  other.join();
}

TEST_F(NODOHelperXPCClientTest, ADaemonThatNeverAnswersTimesOut) {
  client.timeout = 0.01;
  helper->answer("status", [](const auto&) {});
  const auto begin = std::chrono::steady_clock::now();
  try {
    client.status();
    FAIL() << "there was a status";
  } catch (const NODOHelperClientError& error) {
    EXPECT_EQ(error, NODOHelperClientError::timedOut());
  }
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(10));
  EXPECT_EQ(helper->steps().back(), "invalidate");
}

TEST_F(NODOHelperXPCClientTest, EverythingAfterTheTimeOutIsIgnored) {
  client.timeout = impatience;
  std::vector<FakeHelperRequest> kept;
  helper->answer("status", [&](const FakeHelperRequest& request) { kept.push_back(request); });
  EXPECT_EQ(outcomeOfStatus(), "Helper request timed out");
  ASSERT_EQ(kept.size(), 1U);
  kept[0].reply(helper->status);
  kept[0].reply("no envelope");
  kept[0].fail("late");
  kept[0].interrupt();
  kept[0].invalidate();

  helper->answer("status", [&](const auto& request) { request.reply(helper->status); });
  EXPECT_EQ(client.status(), helper->status) << "a late outcome reached the next request";
}

TEST_F(NODOHelperXPCClientTest, ALimitThatIsNoNumberOfSecondsIsNoneAtAll) {
  for (const double limit :
       {0.0, -1.0, -std::numeric_limits<double>::infinity(), std::nan(""), 1e-12}) {
    client.timeout = limit;
    helper->answer("status", [](const auto&) {});
    EXPECT_EQ(outcomeOfStatus(), "Helper request timed out") << limit;
  }
}

TEST_F(NODOHelperXPCClientTest, ALimitBeyondTheClockIsALongOne) {
  for (const double limit : {1e12, 1e300, std::numeric_limits<double>::infinity()}) {
    client.timeout = limit;
    std::thread other;
    helper->answer("status", [&](const FakeHelperRequest& request) {
      other = std::thread([&, request] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));  // so that it is waited for
        request.reply(helper->status);
      });
    });
    EXPECT_NO_THROW(EXPECT_EQ(client.status(), helper->status)) << limit;
    other.join();
  }
}

TEST_F(NODOHelperXPCClientTest, ARepliedTextMustBeUTF8) {
  for (const std::optional<std::string>& text :
       {std::optional<std::string>(), std::optional<std::string>("{\"error\":\"\xFF\"}"),
        std::optional<std::string>("\xC0\x80")}) {
    helper->answer("status", [&](const auto& request) { request.reply(text); });
    EXPECT_EQ(outcomeOfStatus(), "Invalid helper response: non-UTF8 payload");
  }
}

TEST_F(NODOHelperXPCClientTest, AReplyThatIsNoEnvelopeGivesTheDecodersError) {
  for (const char* text : {"", "not JSON", "[]", "null", "5", "{\"status\":{}}", "{\"error\":5}",
                           "{\"run\":[]}", "{} trailing"}) {
    helper->answer("status", [&](const auto& request) { request.reply(text); });
    EXPECT_THROW(client.status(), DecodingError) << text;
  }
  EXPECT_EQ(helper->openConnections(), 0U);
}

TEST_F(NODOHelperXPCClientTest, AnErrorEnvelopeIsUnavailableWithTheDaemonsText) {
  for (const char* text : {"no", "", "state.json: broken"}) {
    helper->answer("status", [&](const auto& request) { request.refuse(text); });
    EXPECT_EQ(outcomeOfStatus(), std::string("Helper unavailable: ") + text);
  }
}

TEST_F(NODOHelperXPCClientTest, AnErrorBesideAStatusIsTheError) {
  helper->answer("status", [&](const auto& request) {
    std::string text = encodeJSON(
        NODOHelperCommandResponse{.status = helper->status, .run = helper->run, .error = "both"},
        JSONLayout::compact);
    request.reply(std::move(text));
  });
  EXPECT_EQ(outcomeOfStatus(), "Helper unavailable: both");
}

TEST_F(NODOHelperXPCClientTest, AnEnvelopeWithoutTheExpectedReportIsInvalid) {
  const std::string noStatus = "Invalid helper response: missing status report";
  for (const char* request : {"status", "stop", "repair", "enableManual"}) {
    helper->answer(request, [&](const auto& asked) { asked.reply(helper->run); });
  }
  EXPECT_EQ(outcomeOfStatus(), noStatus);
  EXPECT_EQ(outcomeOf([&] { client.stop(); }), noStatus);
  EXPECT_EQ(outcomeOf([&] { client.repair(); }), noStatus);
  EXPECT_EQ(outcomeOf([&] { client.enableManual(5, false, std::nullopt, noon); }), noStatus);

  for (const char* envelope : {"{}", "status only"}) {
    helper->answer("reconcile", [&](const auto& request) {
      if (std::string(envelope) == "{}") {
        request.reply(envelope);
      } else {
        request.reply(helper->status);
      }
    });
    EXPECT_EQ(outcomeOf([&] { client.reconcile(); }), "Invalid helper response: missing run report")
        << envelope;
  }
}

}  // namespace
}  // namespace nodo
