#include <platform/HelperMachine.h>
#include <platform/macos/MacDaemonLoop.h>
#include <testing/FakeCodeSigning.h>

#include <cmath>
#include <csignal>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <poll.h>
#include <tests/macos/FakeMac.h>

namespace nodo {
namespace {

using test::FakeCodeSigning;
using test::FakeMac;

constexpr std::uint32_t canSleep = 0xe0000270;
constexpr std::uint32_t willSleep = 0xe0000280;
constexpr std::uint32_t willPowerOn = 0xe0000320;
constexpr std::uint32_t hasPoweredOn = 0xe0000300;
constexpr std::uint32_t clamshellChanged = 0xe0034100;
constexpr double settled = 0.2;  // longer than changes are gathered

class MacDaemonLoopTest : public ::testing::Test {
 protected:
  using Events = std::vector<std::string>;

  FakeMac& mac = FakeMac::instance();
  Events events;
  std::unique_ptr<MacDaemonLoop> loop;

  MacDaemonLoopTest() {
    mac.reset();
    makeLoop();
  }

  void TearDown() override {
    loop.reset();
    EXPECT_EQ(mac.openHandles(), std::multiset<std::string>{});
    EXPECT_EQ(mac.sources(), 0U);
  }

  void makeLoop() {
    loop.reset();
    loop = std::make_unique<MacDaemonLoop>(std::make_shared<FakeCodeSigning>());
  }

  /// Runs the loop through `steps`, each after everything that the one before has set off, and ends
  /// it by a signal.
  Events run(const std::vector<std::function<void()>>& steps) {
    for (const auto& step : steps) {
      mac.whenIdle(step);
    }
    mac.whenIdle([this] { mac.raise(SIGTERM); });
    loop->run(
        {.machineChanged =
             [this](const std::vector<News>& news) { events.push_back("changed " + listed(news)); },
         .timerFired = [this] { events.emplace_back("timer"); },
         .hungUp = [this] { events.emplace_back("hangup"); },
         .terminate = [this] { events.emplace_back("terminate"); }});
    return events;
  }

  std::function<void()> wait(double seconds) {
    return [this, seconds] { mac.pass(seconds); };
  }
};

TEST_F(MacDaemonLoopTest, ASignalEndsTheLoopOnceItWasHandled) {
  EXPECT_EQ(run({}), Events{"terminate"});
  EXPECT_EQ(run({[this] { mac.raise(SIGINT); }}), (Events{"terminate", "terminate"}));
}

TEST_F(MacDaemonLoopTest, ASignalThatComesBeforeTheSystemWatchesForItIsNotLost) {
  mac.raise(SIGHUP);
  EXPECT_EQ(run({}), (Events{"hangup", "terminate"}));

  events.clear();
  makeLoop();
  mac.raise(SIGTERM);
  mac.whenIdle([this] { events.emplace_back("too late"); });
  EXPECT_EQ(run({}), Events{"terminate"});
}

TEST_F(MacDaemonLoopTest, ASignalOfAnEarlierLoopIsNoneOfTheNext) {
  EXPECT_EQ(run({}), Events{"terminate"});
  events.clear();
  makeLoop();
  EXPECT_EQ(run({[this] { events.emplace_back("alive"); }}), (Events{"alive", "terminate"}));
}

TEST_F(MacDaemonLoopTest, AHangupDoesNotEndTheLoop) {
  EXPECT_EQ(run({[this] { mac.raise(SIGHUP); }}), (Events{"hangup", "terminate"}));
}

TEST_F(MacDaemonLoopTest, NothingIsServedAfterTheEnd) {
  EXPECT_EQ(run({[this] {
              loop->setTimer(Seconds(0));
              mac.raise(SIGTERM);
              mac.raise(SIGINT);
              mac.pass(1);
            }}),
            Events{"terminate"});
}

TEST_F(MacDaemonLoopTest, SignalsAreNotIgnoredSoThatChildrenDoNotInheritThat) {
  for (const int number : {SIGTERM, SIGINT}) {
    struct sigaction action = {};
    ASSERT_EQ(sigaction(number, nullptr, &action), 0);
    EXPECT_NE(action.sa_handler, SIG_IGN);
    EXPECT_NE(action.sa_handler, SIG_DFL);
  }
  loop.reset();
  for (const int number : {SIGTERM, SIGINT}) {
    struct sigaction action = {};
    ASSERT_EQ(sigaction(number, nullptr, &action), 0);
    EXPECT_EQ(action.sa_handler, SIG_DFL);
  }
}

TEST_F(MacDaemonLoopTest, TheTimerFiresOnceAtItsTime) {
  loop->setTimer(Seconds(60));
  EXPECT_EQ(run({wait(59.9), [this] { events.emplace_back("a minute"); }, wait(0.1), wait(600)}),
            (Events{"a minute", "timer", "terminate"}));
}

TEST_F(MacDaemonLoopTest, ANewTimeReplacesTheOldOne) {
  loop->setTimer(Seconds(60));
  loop->setTimer(Seconds(120));
  EXPECT_EQ(run({wait(90), [this] { events.emplace_back("later"); }, wait(30)}),
            (Events{"later", "timer", "terminate"}));
}

TEST_F(MacDaemonLoopTest, ATimerThatIsTakenBackDoesNotFire) {
  loop->setTimer(Seconds(60));
  loop->setTimer(std::nullopt);
  EXPECT_EQ(run({wait(1e9)}), Events{"terminate"});
}

TEST_F(MacDaemonLoopTest, ATimeInThePastIsNow) {
  for (const double seconds : {0.0, -5.0, -std::numeric_limits<double>::infinity()}) {
    events.clear();
    EXPECT_EQ(run({[&] { loop->setTimer(Seconds(seconds)); }, wait(0)}),
              (Events{"timer", "terminate"}))
        << seconds;
  }
}

TEST_F(MacDaemonLoopTest, ATimeBeyondTheClockIsFarAway) {
  for (const double seconds : {1e12, 1e300, std::numeric_limits<double>::infinity()}) {
    events.clear();
    EXPECT_EQ(run({[&] { loop->setTimer(Seconds(seconds)); }, wait(300.0 * 24 * 3600)}),
              Events{"terminate"})
        << seconds;
  }
}

TEST_F(MacDaemonLoopTest, EachChangeOfTheMachineIsNamed) {
  EXPECT_EQ(run({[this] { mac.powerSource(); }, wait(settled),
                 [this] { mac.lid(clamshellChanged, nullptr); }, wait(settled),
                 [this] { mac.sleep(hasPoweredOn, nullptr); }, wait(settled),
                 [this] { mac.path(); }, wait(settled)}),
            (Events{"changed power supply", "changed lid", "changed resume", "changed route",
                    "terminate"}));
}

TEST_F(MacDaemonLoopTest, HeatAndLowPowerModeAreNewsOnTheMainThread) {
  EXPECT_EQ(run({[this] { mac.tellThermalState(); }, wait(settled),
                 [this] { events.emplace_back("cooler"); }, [this] { mac.tellPowerState(); },
                 wait(settled)}),
            (Events{"changed power supply", "cooler", "changed power supply", "terminate"}));
}

TEST_F(MacDaemonLoopTest, NewsOnTheirWayToALoopThatIsGoneAreNoneOfTheNext) {
  mac.tellThermalState();
  makeLoop();
  EXPECT_EQ(run({wait(settled)}), Events{"terminate"});
}

TEST_F(MacDaemonLoopTest, ABurstOfChangesIsOneChange) {
  EXPECT_EQ(run({[this] {
                   mac.lid(clamshellChanged, nullptr);
                   mac.path();
                 },
                 wait(0.05),
                 [this] {
                   mac.path();
                   mac.powerSource();
                   events.emplace_back("not yet");
                 },
                 wait(0.06), [this] { events.emplace_back("however long it goes on"); }, wait(10)}),
            (Events{"not yet", "changed lid, route, power supply", "however long it goes on",
                    "terminate"}));
}

TEST_F(MacDaemonLoopTest, OtherMessagesOfTheSystemAreNoChange) {
  EXPECT_EQ(run({[this] { mac.lid(clamshellChanged + 1, nullptr); },
                 [this] { mac.sleep(willPowerOn, nullptr); }, wait(settled)}),
            Events{"terminate"});
}

TEST_F(MacDaemonLoopTest, TheSystemIsNotKeptWaitingForItsSleep) {
  EXPECT_EQ(run({[this] { mac.sleep(canSleep, reinterpret_cast<void*>(11)); },
                 [this] { mac.sleep(willSleep, reinterpret_cast<void*>(12)); }, wait(settled)}),
            Events{"terminate"});
  EXPECT_EQ(mac.allowedChanges, (std::vector<long>{11, 12}));
}

TEST_F(MacDaemonLoopTest, WhatTheSystemDoesNotOfferIsReportedAndDoneWithout) {
  const struct {
    bool FakeMac::*offer;
    const char* line;
  } cases[] = {
      {&FakeMac::offersPowerNews, "nodod: no news of the power supply: "},
      {&FakeMac::offersLidService, "nodod: no news of the lid: "},
      {&FakeMac::offersLidNews, "nodod: no news of the lid: "},
      {&FakeMac::offersSleepNews, "nodod: no news of sleep and wake: "},
      {&FakeMac::offersPathMonitor, "nodod: no news of the network: "},
  };

  for (const auto& each : cases) {
    loop.reset();
    mac.reset();
    mac.*each.offer = false;
    ::testing::internal::CaptureStderr();
    makeLoop();
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              std::string(each.line) + "the system does not offer them\n");
    events.clear();
    EXPECT_EQ(run({}), Events{"terminate"});
  }
}

TEST_F(MacDaemonLoopTest, WhoListensHearsOfEachChange) {
  const auto news = listenForChanges(std::nullopt, Seconds(1));
  const auto others = listenForChanges(std::nullopt, Seconds(1));
  ASSERT_TRUE(news && others);
  const auto hears = [&news] {
    pollfd waiting{.fd = news->descriptor(), .events = POLLIN, .revents = 0};
    const bool isReadable = ::poll(&waiting, 1, 0) == 1;
    EXPECT_EQ(news->take(), isReadable);
    return isReadable;
  };
  EXPECT_FALSE(hears());
  run({[this] {
         loop->announceChange();
         loop->announceChange();
       },
       wait(0), [&] { EXPECT_TRUE(hears()); }, wait(1), [&] { EXPECT_FALSE(hears()); },
       [this] { mac.notify("com.example.Changed"); }, [&] { EXPECT_FALSE(hears()); },
       [this] { loop->announceChange(); }, wait(0.1), [&] { EXPECT_TRUE(hears()); }});
  EXPECT_TRUE(hears()) << "the daemon has ended";
  EXPECT_TRUE(others->take());
}

TEST_F(MacDaemonLoopTest, WithoutNotificationsThereIsNothingToListenTo) {
  mac.offersNotifications = false;
  EXPECT_EQ(listenForChanges(std::nullopt, Seconds(1)), nullptr);
}

TEST_F(MacDaemonLoopTest, WithoutSourcesOfEventsThereIsNoLoop) {
  loop.reset();
  mac.offersSources = false;
  EXPECT_THROW(makeLoop(), std::runtime_error);
}

TEST_F(MacDaemonLoopTest, AnErrorOfAHandlerEndsTheLoopAndReachesItsCaller) {
  mac.whenIdle([this] {
    loop->setTimer(Seconds(0));
    mac.pass(0);
  });
  try {
    loop->run({.machineChanged = [](const std::vector<News>&) {},
               .timerFired = [] { throw std::runtime_error("broken"); },
               .terminate = [] {}});
    FAIL() << "the loop ended well";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "broken");
  }
  EXPECT_EQ(run({}), Events{"terminate"}) << "the error is thrown once";
}

TEST_F(MacDaemonLoopTest, ARunLoopThatEndsByItselfIsAnError) {
  mac.runLoopEndsByItself = true;
  EXPECT_THROW(run({}), std::runtime_error);
}

}  // namespace
}  // namespace nodo
