#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/helper/HelperConnection.h>
#include <NODOCore/helper/NODOHelperXPCClient.h>
#include <NODOCore/helper/NODOHelperXPCProtocol.h>
#include <platform/HelperMachine.h>
#include <testing/EnvironmentVariable.h>
#include <testing/OpenDescriptors.h>

#include <chrono>
#include <cstring>
#include <thread>

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <tests/platform/linux/bus/PrivateBus.h>
#include <tests/platform/linux/helper/ScriptedDaemon.h>

namespace nodo {
namespace {

constexpr double patience = 60;
constexpr double impatience = 0.2;

std::string envelope(const std::string& stopReason) {
  StatusReport status;
  status.state.lastStopReason = stopReason;
  return encodeJSON(NODOHelperCommandResponse::success(status), JSONLayout::compact);
}

// A socket that takes connections and never says a word.
class SilentSocket {
 public:
  explicit SilentSocket(int backlog) : socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path().c_str(), sizeof address.sun_path - 1);
    const auto* generic = reinterpret_cast<const sockaddr*>(&address);
    EXPECT_EQ(::bind(socket_.get(), generic, sizeof address), 0);
    EXPECT_EQ(::listen(socket_.get(), backlog), 0);
  }

  std::string path() const { return (folder_ / "socket").string(); }

  std::string address() const { return "unix:path=" + path(); }

 private:
  test::TemporaryFolder folder_;
  FileDescriptor socket_;
};

class BusHelperConnectionTest : public ::testing::Test {
 protected:
  using Clock = std::chrono::steady_clock;

  void SetUp() override {
    if (!PrivateBus::isInstalled()) {
      GTEST_SKIP() << "dbus-daemon is not installed";
    }
    bus = std::make_unique<PrivateBus>();
  }

  NODOHelperXPCClient client(double timeout = patience) const {
    return clientAt(bus->address(), timeout);
  }

  static NODOHelperXPCClient clientAt(const std::optional<std::string>& address, double timeout) {
    return {std::string(NODOServiceConstants::helperMachServiceName), timeout,
            helperConnecting(address)};
  }

  // What the status request leads to: the report's stop reason or the error's text.
  static std::string statusOf(const NODOHelperXPCClient& client) {
    try {
      return client.status().state.lastStopReason.value_or("none");
    } catch (const std::exception& error) {
      return error.what();
    }
  }

  // The same, and whether the error says that there is a daemon.
  static std::string failureOf(const NODOHelperXPCClient& client) {
    try {
      client.status();
      return "none";
    } catch (const HelperConnectionError& error) {
      return (error.helperIsThere() ? "there: " : "not there: ") + std::string(error.what());
    } catch (const std::exception& error) {
      return error.what();
    }
  }

  static bool says(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
  }

  std::unique_ptr<PrivateBus> bus;
};

TEST_F(BusHelperConnectionTest, EveryRequestReachesTheDaemonAndItsAnswerComesBack) {
  const ScriptedDaemon daemon(bus->address(), ScriptedDaemon::text(envelope("here")));
  const Date now = dateFromSeconds(1769847300);
  const auto reasonOf = [](const StatusReport& report) { return *report.state.lastStopReason; };
  EXPECT_EQ(reasonOf(client().status()), "here");
  EXPECT_EQ(reasonOf(client().enableManual(20, false, std::nullopt, now)), "here");
  EXPECT_EQ(reasonOf(client().enableManual(
                -9000000000, true, ActivationRequester("Codex", "p - s", "Stop", now), now)),
            "here");
  EXPECT_EQ(reasonOf(client().enableManual(5, false, ActivationRequester("é", {}, {}, now), now)),
            "here");
  EXPECT_EQ(reasonOf(client().enableManual(5, true, std::nullopt, now)), "here");
  EXPECT_EQ(reasonOf(client().stop()), "here");
  EXPECT_EQ(reasonOf(client().repair()), "here");
  EXPECT_THROW(client().reconcile(), NODOHelperClientError);  // the answer holds no run
  EXPECT_EQ(daemon.requests(),
            (std::vector<std::string>{
                "Status()", "EnableManual(x) 20",
                "EnableManualV2(xba{sv}) -9000000000 true name=Codex context=p - s event=Stop",
                "EnableManualV2(xba{sv}) 5 false name=é", "EnableManualV2(xba{sv}) 5 true",
                "Stop()", "Repair()", "Reconcile()"}));
}

TEST_F(BusHelperConnectionTest, WithoutADaemonItIsSaidWhatToStart) {
  EXPECT_EQ(failureOf(client()), "not there: the daemon nodod is not running on the bus at " +
                                     bus->address() + "; start it with 'nodod --bus " +
                                     bus->address() + "'");
}

TEST_F(BusHelperConnectionTest, ADaemonThatHangsIsGivenUpInTime) {
  const ScriptedDaemon daemon(bus->address(), ScriptedDaemon::silence());
  const auto begin = Clock::now();
  EXPECT_EQ(statusOf(client(impatience)), "Helper request timed out");
  EXPECT_LT(Clock::now() - begin, std::chrono::seconds(10));
}

TEST_F(BusHelperConnectionTest, ARefusalIsPassedOnInItsOwnWords) {
  const ScriptedDaemon daemon(
      bus->address(),
      ScriptedDaemon::error("org.freedesktop.DBus.Error.AccessDenied", "not for uid 7"));
  EXPECT_EQ(failureOf(client()), "there: not for uid 7");
}

TEST_F(BusHelperConnectionTest, ARefusalWithoutWordsIsNamed) {
  const ScriptedDaemon daemon(bus->address(), ScriptedDaemon::error("com.example.Odd", ""));
  EXPECT_EQ(failureOf(client()), "there: com.example.Odd");
}

TEST_F(BusHelperConnectionTest, AnAnswerThatIsNoTextIsAnError) {
  const ScriptedDaemon daemon(bus->address(), ScriptedDaemon::number());
  EXPECT_TRUE(failureOf(client()).starts_with("there: the daemon nodod gave an answer without a "));
}

TEST_F(BusHelperConnectionTest, AnAnswerThatIsNoEnvelopeIsAnError) {
  const ScriptedDaemon daemon(bus->address(), ScriptedDaemon::text("{\"status\": 7}"));
  EXPECT_TRUE(says(statusOf(client()), "status: expected an object"));
}

TEST_F(BusHelperConnectionTest, ADaemonThatKnowsNoSuchRequestIsAnError) {
  const ScriptedDaemon daemon(
      bus->address(),
      ScriptedDaemon::error("org.freedesktop.DBus.Error.UnknownMethod", "no Status"));
  EXPECT_TRUE(failureOf(client()).starts_with("there: the daemon nodod does not know the request"));
}

TEST_F(BusHelperConnectionTest, ADaemonThatDiesDuringARequestIsNoticedAtOnce) {
  const ScriptedDaemon daemon(bus->address(), ScriptedDaemon::death());
  EXPECT_EQ(failureOf(client()), "there: the daemon nodod ended before it answered");
}

TEST_F(BusHelperConnectionTest, ABusThatDiesDuringARequestInterruptsIt) {
  const ScriptedDaemon daemon(bus->address(),
                              [this](ScriptedDaemon&, sd_bus_message*) { bus->kill(); });
  EXPECT_EQ(statusOf(client()), "Helper unavailable: connection interrupted");
}

TEST_F(BusHelperConnectionTest, ABusThatHangsIsGivenUpInTime) {
  bus->hang();
  const SilentSocket silent(5);
  for (const std::string& address : {bus->address(), silent.address()}) {
    const auto begin = Clock::now();
    EXPECT_EQ(statusOf(clientAt(address, impatience)), "Helper request timed out") << address;
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(10));
  }
}

TEST_F(BusHelperConnectionTest, ABusThatTakesNobodyMoreHoldsNobodyUp) {
  const SilentSocket full(0);
  const auto begin = Clock::now();
  for (int request = 0; request < 5; ++request) {
    EXPECT_NE(statusOf(clientAt(full.address(), impatience)), "none");
  }
  EXPECT_LT(Clock::now() - begin, std::chrono::seconds(20));
}

TEST_F(BusHelperConnectionTest, AConnectionEndsWithoutWaitingWhateverItDoes) {
  const SilentSocket silent(5);
  const auto connecting = helperConnecting(silent.address());
  const auto begin = Clock::now();
  {
    const auto unused = connecting->privilegedConnection("com.example");
    const auto resumed = connecting->privilegedConnection("com.example");
    resumed->resume();
    const auto asked = connecting->privilegedConnection("com.example");
    asked->resume();
    asked->remoteProxy([](const std::exception_ptr&) { ADD_FAILURE(); })
        ->status([](const std::optional<std::string>&) { ADD_FAILURE(); });
    asked->invalidate();
    asked->invalidate();
  }
  EXPECT_LT(Clock::now() - begin, std::chrono::seconds(10));
}

TEST_F(BusHelperConnectionTest, ABusThatCannotBeReachedIsNamed) {
  const test::TemporaryFolder folder;
  const std::string address = "unix:path=" + (folder / "nothing").string();
  EXPECT_EQ(failureOf(clientAt(address, patience)),
            "not there: cannot connect to the bus at " + address + ": No such file or directory");
  EXPECT_TRUE(says(statusOf(clientAt("no:address", patience)), "the bus at no:address"));
}

TEST_F(BusHelperConnectionTest, WithoutAChoiceItIsTheSystemBus) {
  const test::EnvironmentVariable system("DBUS_SYSTEM_BUS_ADDRESS", bus->address());
  const PrivateBus other;
  const test::EnvironmentVariable session("DBUS_SESSION_BUS_ADDRESS", other.address());
  const ScriptedDaemon daemon(bus->address(), ScriptedDaemon::text(envelope("system")));
  const ScriptedDaemon second(other.address(), ScriptedDaemon::text(envelope("session")));
  EXPECT_EQ(statusOf(clientAt(std::nullopt, patience)), "system");
  EXPECT_EQ(statusOf(clientAt("system", patience)), "system");
  EXPECT_EQ(statusOf(clientAt("session", patience)), "session");
}

// Without a choice of a bus; there are two, and only a test's daemons.
class DaemonOfOnesOwnTest : public BusHelperConnectionTest {
 protected:
  void SetUp() override {
    BusHelperConnectionTest::SetUp();
    if (!IsSkipped()) {
      own = std::make_unique<PrivateBus>();
      system.emplace("DBUS_SYSTEM_BUS_ADDRESS", bus->address());
      session.emplace("DBUS_SESSION_BUS_ADDRESS", own->address());
    }
  }

  static NODOHelperXPCClient anyClient(double timeout = patience) {
    return clientAt(std::nullopt, timeout);
  }

  std::unique_ptr<PrivateBus> own;
  std::optional<test::EnvironmentVariable> system;
  std::optional<test::EnvironmentVariable> session;
};

TEST_F(DaemonOfOnesOwnTest, ServesWhereTheSystemBusHasNone) {
  const ScriptedDaemon daemon(own->address(), ScriptedDaemon::text(envelope("own")));
  EXPECT_EQ(statusOf(anyClient()), "own");
  EXPECT_TRUE(failureOf(clientAt("system", patience)).starts_with("not there: "));
  const ScriptedDaemon systems(bus->address(), ScriptedDaemon::text(envelope("system")));
  EXPECT_EQ(statusOf(anyClient()), "system");
}

TEST_F(DaemonOfOnesOwnTest, ServesLaterRequestsOfTheSameConnection) {
  const ScriptedDaemon daemon(own->address(), ScriptedDaemon::text(envelope("own")));
  const auto connection =
      helperConnecting(std::nullopt)->privilegedConnection("com.quintavel.nodo.helper");
  connection->resume();
  const auto proxy = connection->remoteProxy([](const std::exception_ptr&) { ADD_FAILURE(); });
  int answers = 0;
  for (const int request : {1, 2}) {
    proxy->stop([&](const std::optional<std::string>&) { ++answers; });
    connection->serve(Clock::now() + std::chrono::seconds(60));
    EXPECT_EQ(answers, request);
  }
  EXPECT_EQ(daemon.requests(), (std::vector<std::string>{"Stop()", "Stop()"}));
}

TEST_F(DaemonOfOnesOwnTest, IsNamedWhenThereIsNoneEither) {
  EXPECT_EQ(failureOf(anyClient()),
            "not there: the daemon nodod is not running on the system bus or the session bus; "
            "start it with 'systemctl start nodod', or one of your own with "
            "'nodod --bus session'");
  own->kill();
  const std::string noBus = failureOf(anyClient());
  EXPECT_TRUE(
      noBus.starts_with("not there: the daemon nodod is not running on the system bus, and "
                        "cannot connect to the session bus: "))
      << noBus;
  EXPECT_TRUE(noBus.ends_with("; start it with 'systemctl start nodod'")) << noBus;
}

TEST_F(DaemonOfOnesOwnTest, OnABusThatHangsDoesNotUseUpTheTime) {
  own->hang();
  const std::string failure = failureOf(anyClient(1));
  EXPECT_TRUE(says(failure, "and the session bus does not answer")) << failure;
}

TEST_F(DaemonOfOnesOwnTest, IsNotAskedWhenTheSystemBusHangs) {
  const ScriptedDaemon daemon(own->address(), ScriptedDaemon::text(envelope("own")));
  bus->hang();
  EXPECT_EQ(statusOf(anyClient(impatience)), "Helper request timed out");
}

// ---- what the daemon is to its caller

ScriptedDaemon::Answer permission(bool isGranted, std::string reason) {
  return [isGranted, reason = std::move(reason)](ScriptedDaemon&, sd_bus_message* request) {
    sd_bus_reply_method_return(request, "bs", isGranted ? 1 : 0, reason.c_str());
  };
}

class DaemonStandingTest : public BusHelperConnectionTest {
 protected:
  std::optional<std::string> refusal(double limit = patience) const {
    return daemonStanding(bus->address(), Seconds(limit)).refusal;
  }
};

TEST_F(DaemonStandingTest, ARefusalIsToldWithItsReason) {
  const ScriptedDaemon daemon(bus->address(), permission(false, "not for uid 7"));
  EXPECT_EQ(refusal(), "not for uid 7");
  EXPECT_EQ(daemon.requests(), (std::vector<std::string>{"Settings()", "Permission()"}));
}

TEST_F(DaemonStandingTest, APermissionIsNoRefusal) {
  const ScriptedDaemon daemon(bus->address(), permission(true, ""));
  EXPECT_EQ(refusal(), std::nullopt);
}

TEST_F(DaemonStandingTest, WhatIsNotKnownIsNoRefusal) {
  EXPECT_EQ(refusal(), std::nullopt) << "without a daemon";
  for (const ScriptedDaemon::Answer& answer :
       {ScriptedDaemon::error("org.freedesktop.DBus.Error.UnknownMethod", "no Permission"),
        ScriptedDaemon::number()}) {
    const ScriptedDaemon daemon(bus->address(), answer);
    EXPECT_EQ(refusal(), std::nullopt);
    EXPECT_EQ(daemon.requests(), (std::vector<std::string>{"Settings()", "Permission()"}));
  }
  const ScriptedDaemon daemon(bus->address(), ScriptedDaemon::death());
  EXPECT_EQ(refusal(), std::nullopt);
  EXPECT_EQ(daemon.requests(), std::vector<std::string>{"Settings()"});
  EXPECT_EQ(daemonStanding("no:address", Seconds(patience)).refusal, std::nullopt);
}

TEST_F(DaemonStandingTest, ADaemonOrABusThatHangsIsGivenUpInTime) {
  const ScriptedDaemon daemon(bus->address(), ScriptedDaemon::silence());
  const auto begin = Clock::now();
  EXPECT_EQ(refusal(impatience), std::nullopt);
  bus->hang();
  EXPECT_EQ(refusal(impatience), std::nullopt);
  EXPECT_LT(Clock::now() - begin, std::chrono::seconds(10));
}

// ---- the daemon's settings

class DaemonSettingsOnTheBusTest : public BusHelperConnectionTest {
 protected:
  std::optional<SettingsReport> settings(double limit = patience) const {
    return daemonSettings(bus->address(), Seconds(limit));
  }
};

TEST_F(DaemonSettingsOnTheBusTest, AreWhatTheDaemonSays) {
  EffectiveSettings effective{.settings = {}, .file = "/f", .problems = {"one"}};
  effective.settings.policy.minimumBatteryPercent = 35;
  const SettingsReport report(effective);
  const ScriptedDaemon daemon(bus->address(),
                              ScriptedDaemon::text(encodeJSON(report, JSONLayout::compact)));
  EXPECT_EQ(settings(), report);
  EXPECT_EQ(daemon.requests(), std::vector<std::string>{"Settings()"});
}

TEST_F(DaemonSettingsOnTheBusTest, AreUnknownWhereNobodySaysSo) {
  EXPECT_EQ(settings(), std::nullopt) << "without a daemon";
  for (const ScriptedDaemon::Answer& answer :
       {ScriptedDaemon::error("org.freedesktop.DBus.Error.UnknownMethod", "no Settings"),
        ScriptedDaemon::number(), ScriptedDaemon::text("{}"), ScriptedDaemon::text("no JSON"),
        ScriptedDaemon::death()}) {
    const ScriptedDaemon daemon(bus->address(), answer);
    EXPECT_EQ(settings(), std::nullopt);
  }
  EXPECT_EQ(daemonSettings("no:address", Seconds(patience)), std::nullopt);
}

TEST_F(DaemonSettingsOnTheBusTest, OfADaemonThatHangsAreNotWaitedForLong) {
  const ScriptedDaemon daemon(bus->address(), ScriptedDaemon::silence());
  const auto begin = Clock::now();
  EXPECT_EQ(settings(impatience), std::nullopt);
  EXPECT_LT(Clock::now() - begin, std::chrono::seconds(10));
}

TEST_F(BusHelperConnectionTest, WithoutASystemBusItIsTheSessionBus) {
  const test::TemporaryFolder folder;
  const std::string nothing = "unix:path=" + (folder / "nothing").string();
  const test::EnvironmentVariable system("DBUS_SYSTEM_BUS_ADDRESS", nothing);
  const test::EnvironmentVariable session("DBUS_SESSION_BUS_ADDRESS", bus->address());
  EXPECT_EQ(statusOf(clientAt(std::nullopt, patience)),
            "the daemon nodod is not running on the session bus; start it with "
            "'nodod --bus session'");
  const ScriptedDaemon daemon(bus->address(), ScriptedDaemon::text(envelope("session")));
  EXPECT_EQ(statusOf(clientAt(std::nullopt, patience)), "session");
  bus->kill();
  const std::string neither = failureOf(clientAt(std::nullopt, patience));
  EXPECT_TRUE(neither.starts_with("not there: cannot connect to the system bus")) << neither;
  EXPECT_TRUE(says(neither, "cannot connect to the session bus")) << neither;
}

TEST_F(BusHelperConnectionTest, NoncharactersInARequesterAreReplaced) {
  const ScriptedDaemon daemon(bus->address(), ScriptedDaemon::text(envelope("here")));
  const Date now = dateFromSeconds(1769847300);
  const ActivationRequester requester("pi\uFFFF", "\U0010FFFE", "\uFDD0Stop", now);
  EXPECT_EQ(client().enableManual(20, true, requester, now).state.lastStopReason, "here");
  EXPECT_EQ(daemon.requests().front(),
            "EnableManualV2(xba{sv}) 20 true name=pi\uFFFD context=\uFFFD event=\uFFFDStop");
}

TEST_F(BusHelperConnectionTest, ATextThatTheBusCannotCarryFailsItsRequestAlone) {
  const ScriptedDaemon daemon(bus->address(), ScriptedDaemon::text(envelope("here")));
  const auto connection =
      helperConnecting(bus->address())->privilegedConnection("com.quintavel.nodo.helper");
  std::string first;
  std::string second;
  connection->resume();
  const auto proxy = connection->remoteProxy([&](const std::exception_ptr& error) {
    try {
      std::rethrow_exception(error);
    } catch (const std::exception& known) {
      first = known.what();
    }
  });
  proxy->enableManualV2(1, false, "\xff", {}, {},
                        [](const std::optional<std::string>&) { ADD_FAILURE(); });
  proxy->status([&](const std::optional<std::string>& text) { second = text.value_or("nothing"); });
  connection->serve(Clock::now() + std::chrono::seconds(60));
  EXPECT_EQ(first, "cannot send who asks: Invalid argument");
  EXPECT_EQ(second, envelope("here"));
}

TEST_F(BusHelperConnectionTest, AfterItsEndAConnectionTellsSoAndTakesNoRequest) {
  const auto connection =
      helperConnecting(bus->address())->privilegedConnection("com.quintavel.nodo.helper");
  bool invalidated = false;
  std::string reason;
  connection->setInvalidationHandler([&] { invalidated = true; });
  connection->resume();
  connection->invalidate();
  EXPECT_TRUE(invalidated);
  const auto proxy = connection->remoteProxy([&](const std::exception_ptr& error) {
    try {
      std::rethrow_exception(error);
    } catch (const std::exception& known) {
      reason = known.what();
    }
  });
  proxy->stop([](const std::optional<std::string>&) { ADD_FAILURE(); });
  EXPECT_EQ(reason, "the connection to the daemon has ended");
}

TEST_F(BusHelperConnectionTest, RequestsLeaveNothingOpen) {
  const ScriptedDaemon daemon(bus->address(), ScriptedDaemon::text(envelope("here")));
  EXPECT_EQ(statusOf(client()), "here");
  const auto before = test::openDescriptors();
  for (int request = 0; request < 20; ++request) {
    EXPECT_EQ(statusOf(client()), "here");
  }
  EXPECT_EQ(test::openDescriptors(), before);
}

TEST_F(BusHelperConnectionTest, ManyThreadsMayAskAtOnceAndGiveUpAtAnyMoment) {
  const ScriptedDaemon daemon(bus->address(), ScriptedDaemon::text(envelope("here")));
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 8; ++thread) {
    threads.emplace_back([this, thread] {
      for (int request = 0; request < 25; ++request) {
        const bool hasTime = (thread + request) % 2 == 0;
        const std::string outcome = statusOf(client(hasTime ? patience : request * 0.0001));
        EXPECT_TRUE(outcome == "here" || (!hasTime && says(outcome, "timed out"))) << outcome;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

}  // namespace
}  // namespace nodo
