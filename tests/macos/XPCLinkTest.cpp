#include <NODOCore/base/Errors.h>
#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/helper/NODOHelperXPCClient.h>
#include <NODOCore/helper/NODOHelperXPCProtocol.h>
#include <platform/HelperMachine.h>
#include <platform/macos/MacDaemonLoop.h>
#include <platform/macos/XPCHelperConnection.h>
#include <platform/macos/XPCHelperListener.h>
#include <testing/FakeCodeSigning.h>
#include <testing/FakeHelper.h>

#include <bit>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <tests/macos/FakeMac.h>
#include <tests/macos/FakeXPC.h>

namespace nodo {
namespace {

using test::FakeCodeSigning;
using test::FakeMac;
using test::FakeXPC;
using Texts = std::vector<std::string>;

const std::string serviceName = "some.service";

/// A daemon's service that notes what it is asked for and replies with `reply`.
class RecordingService : public NODOHelperXPCProtocol {
 public:
  Texts requests;
  bool isOnMainThread = true;
  std::function<void(const HelperReply&)> reply;

  void perform(HelperRequest request, HelperReply answer) override {
    requests.push_back(test::requestText(request));
    isOnMainThread = isOnMainThread && std::this_thread::get_id() == mainThread_;
    reply(answer);
  }

 private:
  const std::thread::id mainThread_ = std::this_thread::get_id();
};

/// The portable client and a service, with the adapters of both ends between them.
class XPCLinkTest : public ::testing::Test {
 protected:
  FakeXPC& xpc = FakeXPC::instance();
  FakeMac& mac = FakeMac::instance();
  const Date noon = dateFromSeconds(1769860800);
  StatusReport report;
  RecordingService service;
  std::shared_ptr<FakeCodeSigning> codeSigning = std::make_shared<FakeCodeSigning>();
  std::unique_ptr<XPCHelperListener> listener;
  NODOHelperXPCClient client{serviceName, 60, helperConnecting(std::nullopt)};

  XPCLinkTest() {
    xpc.reset();
    mac.reset();
    EXPECT_EQ(ownInstances(), 0);
    codeSigning->validity[token()] = 0;
    log_ = open_memstream(&logText_, &logSize_);
    listener = std::make_unique<XPCHelperListener>(serviceName, service, codeSigning, log_);
    report.generatedAt = noon;
    report.state = NODOState::fresh(noon);
    replyWith({.status = report});
  }

  void TearDown() override {
    if (listener) {
      EXPECT_EQ(ownInstances(), 2) << "the delegate and what it exports";
    }
    listener.reset();
    xpc.drain();
    EXPECT_EQ(ownInstances(), 0);
    EXPECT_EQ(xpc.liveObjects(), std::multiset<std::string>{});
    EXPECT_EQ(codeSigning->objectsAlive(), 0);
    EXPECT_EQ(codeSigning.use_count(), 1);
    std::fclose(log_);
    std::free(logText_);
  }

  static int ownInstances() {
    return FakeXPC::liveInstances("NODOHelperListenerDelegate") +
           FakeXPC::liveInstances("NODOHelperExportedObject");
  }

  AuditToken token() const { return std::bit_cast<AuditToken>(*xpc.auditToken); }

  std::string log() {
    xpc.drain();
    std::fflush(log_);
    return {logText_, logSize_};
  }

  void replyWith(const NODOHelperCommandResponse& response) {
    service.reply = [text = encodeJSON(response, JSONLayout::compact)](const HelperReply& reply) {
      reply(text);
    };
  }

  /// What a request ends with, made on a thread of its own while the main run loop serves.
  std::string outcomeOf(const std::function<void()>& request) {
    std::string outcome = "ok";
    std::thread caller([&] {
      try {
        request();
      } catch (const std::exception& error) {
        outcome = error.what();
      }
      mac.post([this] { mac.stop(); });
    });
    mac.run();
    caller.join();
    return outcome;
  }

  std::string outcomeOfStatus() {
    return outcomeOf([this] { client.status(); });
  }

 private:
  std::FILE* log_ = nullptr;
  char* logText_ = nullptr;
  std::size_t logSize_ = 0;
};

TEST_F(XPCLinkTest, EveryRequestReachesTheServiceOnTheMainThread) {
  const ActivationRequester pi("pi", std::nullopt, "Stop \u00e9", noon);
  const DaemonRunReport run{.generatedAt = noon,
                            .status = report,
                            .operation = std::nullopt,
                            .operations = {},
                            .stateChanged = false};
  replyWith({.status = report, .run = run});
  EXPECT_EQ(outcomeOf([&] {
              EXPECT_EQ(client.status(), report);
              EXPECT_EQ(client.enableManual(-7, false, std::nullopt, noon), report);
              EXPECT_EQ(client.enableManual(20, true, pi, noon), report);
              EXPECT_EQ(client.enableManual(INT64_MAX, false, pi, noon), report);
              EXPECT_EQ(client.enableManual(1, true, std::nullopt, noon), report);
              EXPECT_EQ(client.stop(), report);
              EXPECT_EQ(client.reconcile(), run);
              EXPECT_EQ(client.repair(), report);
            }),
            "ok");
  EXPECT_EQ(service.requests,
            (Texts{"status", "enableManual -7",
                   "enableManualV2 20 extend-only \"pi\" nil \"Stop \u00e9\"",
                   "enableManualV2 9223372036854775807 replace \"pi\" nil \"Stop \u00e9\"",
                   "enableManualV2 1 extend-only nil nil nil", "stop", "reconcile", "repair"}));
  EXPECT_TRUE(service.isOnMainThread);
  EXPECT_EQ(log(), "");
}

TEST_F(XPCLinkTest, TheClientTakesItsStepsInOrderOnAPrivilegedConnection) {
  EXPECT_EQ(outcomeOfStatus(), "ok");
  EXPECT_EQ(xpc.steps(), (Texts{"connect some.service with options 4096",
                                "remote interface NODOHelperXPCProtocol", "invalidation handler",
                                "interruption handler", "resume", "proxy",
                                "send statusWithReply:", "invalidate"}));
}

TEST_F(XPCLinkTest, AnAcceptedConnectionGetsTheServiceAndIsResumed) {
  EXPECT_EQ(outcomeOfStatus(), "ok");
  EXPECT_EQ(xpc.listenerSteps(), (Texts{"exported interface NODOHelperXPCProtocol",
                                        "exported object", "resume", "accepted"}));
}

TEST_F(XPCLinkTest, ARefusedConnectionGetsNothingAndOneLineInTheLog) {
  codeSigning->validity[token()] = -67062;
  EXPECT_EQ(outcomeOfStatus(), "Helper unavailable: connection invalidated");
  EXPECT_EQ(xpc.listenerSteps(), Texts{});
  EXPECT_EQ(service.requests, Texts{});
  EXPECT_EQ(log(), "nodod: rejected unsigned XPC client\n");
}

TEST_F(XPCLinkTest, RefusalsWithoutEndAreOneLineInTheLog) {
  codeSigning->validity[token()] = -67062;
  for (int call = 0; call < 100; ++call) {
    EXPECT_EQ(outcomeOfStatus(), "Helper unavailable: connection invalidated");
  }
  EXPECT_EQ(log(), "nodod: rejected unsigned XPC client\n");
}

TEST_F(XPCLinkTest, TheSystemIsToldTheSameRequirement) {
  EXPECT_EQ(xpc.requirement, NODOXPCClientAuthentication::codeSigningRequirement());
}

TEST_F(XPCLinkTest, ACallerIsKnownByAllBytesOfItsToken) {
  xpc.auditToken->back() ^= 1U << 31U;
  EXPECT_EQ(outcomeOfStatus(), "Helper unavailable: connection invalidated");
  EXPECT_EQ(log(), "nodod: rejected XPC client (SecCode API status 100003)\n");
}

TEST_F(XPCLinkTest, AConnectionWithoutTheTokensMethodIsRefused) {
  xpc.auditToken.reset();
  EXPECT_EQ(outcomeOfStatus(), "Helper unavailable: connection invalidated");
  EXPECT_EQ(xpc.listenerSteps(), Texts{});
  EXPECT_EQ(log(), "nodod: rejected XPC client (audit token unavailable)\n");
}

TEST_F(XPCLinkTest, AServiceThatIsNotThereIsUnavailable) {
  client.machServiceName = "another.service";
  EXPECT_EQ(outcomeOfStatus(), "Helper unavailable: connection invalidated");
}

TEST_F(XPCLinkTest, AnInterruptedConnectionIsUnavailable) {
  xpc.delivery = FakeXPC::Delivery::interrupted;
  EXPECT_EQ(outcomeOfStatus(), "Helper unavailable: connection interrupted");
}

TEST_F(XPCLinkTest, ADaemonThatNeverAnswersTimesOut) {
  xpc.delivery = FakeXPC::Delivery::never;
  client.timeout = 0.01;
  EXPECT_EQ(outcomeOfStatus(), "Helper request timed out");
}

TEST_F(XPCLinkTest, AProxyOfAnotherKindIsNone) {
  xpc.proxyConforms = false;
  EXPECT_EQ(outcomeOfStatus(), "Helper unavailable: unable to create XPC proxy");
}

TEST_F(XPCLinkTest, AnErrorOfTheSystemArrivesAsItIs) {
  xpc.delivery = FakeXPC::Delivery::failed;
  std::optional<XPCError> found;
  EXPECT_EQ(outcomeOf([&] {
              try {
                client.status();
              } catch (const XPCError& error) {
                found = error;
              }
            }),
            "ok");
  EXPECT_EQ(found, XPCError("NSCocoaErrorDomain", 4864, "the message could not be delivered"));
}

TEST_F(XPCLinkTest, OnlyAnInvalidConnectionSaysThatNothingIsThere) {
  const std::int64_t interrupted = 4097;
  const std::int64_t invalid = 4099;
  const std::int64_t replyInvalid = 4101;
  EXPECT_TRUE(XPCError("NSCocoaErrorDomain", interrupted, "").helperIsThere());
  EXPECT_FALSE(XPCError("NSCocoaErrorDomain", invalid, "").helperIsThere());
  EXPECT_TRUE(XPCError("NSCocoaErrorDomain", replyInvalid, "").helperIsThere());
  EXPECT_TRUE(XPCError("another", invalid, "").helperIsThere());
}

TEST_F(XPCLinkTest, AReplyWithoutAUTF8FormIsInvalid) {
  xpc.replyInstead = u"{\"error\":\"\xD800\"}";
  EXPECT_EQ(outcomeOfStatus(), "Invalid helper response: non-UTF8 payload");
}

TEST_F(XPCLinkTest, AnyTextIsRepliedInFull) {
  const std::string text = "quote \" zero \\u0000 emoji \U0001F468\u200D\U0001F469 end";
  replyWith({.error = text});
  EXPECT_EQ(outcomeOfStatus(), "Helper unavailable: " + text);
}

TEST_F(XPCLinkTest, AServiceWithoutAProperTextStillReplies) {
  for (const std::optional<std::string>& text :
       {std::optional<std::string>(), std::optional<std::string>("\xFF")}) {
    service.reply = [text](const HelperReply& reply) { reply(text); };
    EXPECT_EQ(outcomeOf([&] { EXPECT_THROW(client.status(), DecodingError); }), "ok");
  }
}

TEST_F(XPCLinkTest, AReplyMayComeLaterAndFromAnotherThread) {
  std::thread other;
  service.reply = [&](const HelperReply& reply) {
    other = std::thread([this, reply] {
      reply(encodeJSON(NODOHelperCommandResponse{.status = report}, JSONLayout::compact));
    });
  };
  EXPECT_EQ(outcomeOfStatus(), "ok");
  other.join();
}

TEST_F(XPCLinkTest, ARequestThatTheServiceDropsEndsAtOnce) {
  service.reply = [](const HelperReply&) {};
  EXPECT_EQ(outcomeOfStatus(), "the reply block was released");
}

TEST_F(XPCLinkTest, NoRequestReachesTheServiceAfterTheListener) {
  std::thread caller;
  std::string outcome;
  mac.whenIdle([&] {
    caller = std::thread([&] {
      try {
        client.status();
      } catch (const std::exception& error) {
        outcome = error.what();
      }
      mac.post([this] { mac.stop(); });
    });
    // The request waits for the main thread by the time that the service goes.
    while (xpc.listenerSteps().size() < 3) {
      std::this_thread::yield();
    }
    xpc.drain();
    listener.reset();
  });
  mac.run();
  caller.join();
  EXPECT_EQ(outcome, "the reply block was released");
  EXPECT_EQ(service.requests, Texts{});
}

TEST_F(XPCLinkTest, ARequestBehindTheSignalThatEndsTheDaemonIsNotServed) {
  listener.reset();
  MacDaemonLoop loop(codeSigning);
  loop.serve(service);
  client.machServiceName = NODOServiceConstants::helperMachServiceName;
  std::thread caller;
  std::string outcome;
  mac.whenIdle([&] {
    mac.raise(SIGTERM);
    caller = std::thread([&] {
      try {
        client.status();
      } catch (const std::exception& error) {
        outcome = error.what();
      }
    });
    // The request waits for the main thread, behind the signal.
    while (xpc.listenerSteps().size() < 3) {
      std::this_thread::yield();
    }
    xpc.drain();
  });
  int ends = 0;
  loop.run({.machineChanged = {}, .timerFired = {}, .terminate = [&] { ++ends; }});
  caller.join();
  EXPECT_EQ(ends, 1);
  EXPECT_EQ(outcome, "the reply block was released");
  EXPECT_EQ(service.requests, Texts{});
}

TEST_F(XPCLinkTest, ManyClientsAtOnceAreServedOneAfterAnother) {
  constexpr int clients = 16;
  std::vector<std::thread> callers;
  int ok = 0;
  int remaining = clients;
  for (int index = 0; index < clients; ++index) {
    callers.emplace_back([&] {
      std::string outcome = "ok";
      try {
        client.status();
      } catch (const std::exception& error) {
        outcome = error.what();
      }
      mac.post([&, outcome] {
        ok += outcome == "ok" ? 1 : 0;
        if (--remaining == 0) {
          mac.stop();
        }
      });
    });
  }
  mac.run();
  for (std::thread& caller : callers) {
    caller.join();
  }
  EXPECT_EQ(ok, clients);
  EXPECT_EQ(service.requests.size(), static_cast<std::size_t>(clients));
  EXPECT_TRUE(service.isOnMainThread);
}

}  // namespace
}  // namespace nodo
