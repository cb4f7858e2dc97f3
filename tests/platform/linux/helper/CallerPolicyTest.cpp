#include <platform/linux/helper/CallerPolicy.h>

#include <array>
#include <chrono>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tests/platform/linux/bus/PrivateBus.h>
#include <unistd.h>

namespace nodo {

void PrintTo(const CallerVerdict& verdict, std::ostream* out) {
  *out << static_cast<int>(verdict.kind) << " \"" << verdict.reason << "\"";
}

namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::uint32_t root = 0;
constexpr std::uint32_t person = 1000;
constexpr std::uint32_t stranger = 1001;

const CallerPolicy onSystemBus{.ownUser = root, .isOwnUsersBus = true, .hasAuthority = true};
const CallerPolicy onOwnBus{.ownUser = person, .isOwnUsersBus = true, .hasAuthority = false};
const CallerPolicy onAnothersBus{.ownUser = person, .isOwnUsersBus = false, .hasAuthority = true};
const CallerPolicy withoutPolkit{.ownUser = person, .isOwnUsersBus = false, .hasAuthority = false};

const std::array<HelperRequest, 5> changes{EnableManualRequest{}, EnableManualV2Request{},
                                           StopRequest{}, ReconcileRequest{}, RepairRequest{}};

const CallerVerdict serve{.kind = CallerVerdict::Kind::serve, .reason = ""};
const CallerVerdict ask{.kind = CallerVerdict::Kind::askAuthority, .reason = ""};

TEST(CallerPolicyTest, AnyoneMayLook) {
  for (const CallerPolicy& policy : {onSystemBus, onOwnBus, onAnothersBus, withoutPolkit}) {
    EXPECT_EQ(policy.judge(StatusRequest{}, root), serve);
    EXPECT_EQ(policy.judge(StatusRequest{}, stranger), serve);
    EXPECT_EQ(policy.judge(StatusRequest{}, std::nullopt), serve);
  }
}

TEST(CallerPolicyTest, RootMayChangeAnything) {
  for (const CallerPolicy& policy : {onSystemBus, onOwnBus, onAnothersBus, withoutPolkit}) {
    for (const HelperRequest& change : changes) {
      EXPECT_EQ(policy.judge(change, root), serve);
    }
  }
}

TEST(CallerPolicyTest, TheDaemonsUserMayChangeThingsOnItsOwnBusOnly) {
  EXPECT_EQ(onOwnBus.judge(StopRequest{}, person), serve);
  EXPECT_EQ(onAnothersBus.judge(StopRequest{}, person), ask);
  EXPECT_EQ(withoutPolkit.judge(StopRequest{}, person).kind, CallerVerdict::Kind::refuse);
}

TEST(CallerPolicyTest, PolkitIsAskedAboutOthers) {
  for (const HelperRequest& change : changes) {
    EXPECT_EQ(onSystemBus.judge(change, person), ask);
    EXPECT_EQ(onSystemBus.judge(change, UINT32_MAX), ask);
  }
}

TEST(CallerPolicyTest, WithoutPolkitOthersAreRefused) {
  const CallerVerdict verdict = onOwnBus.judge(StopRequest{}, stranger);
  EXPECT_EQ(verdict.kind, CallerVerdict::Kind::refuse);
  EXPECT_EQ(verdict.reason, "on this bus only its own user and root may do this");
}

TEST(CallerPolicyTest, ACallerOfUnknownUserIsRefusedWhoeverElseMayAsk) {
  for (const CallerPolicy& policy : {onSystemBus, onOwnBus, onAnothersBus, withoutPolkit}) {
    for (const HelperRequest& change : changes) {
      const CallerVerdict verdict = policy.judge(change, std::nullopt);
      EXPECT_EQ(verdict.kind, CallerVerdict::Kind::refuse);
      EXPECT_EQ(verdict.reason, "the bus does not tell whose request this is");
    }
  }
}

TEST(CallerPolicyTest, OnlyAClearYesOfPolkitsServes) {
  EXPECT_EQ(CallerPolicy::judge(AuthorityAnswer{.isAuthorized = true}), serve);
  for (const AuthorityAnswer& answer :
       {AuthorityAnswer{}, AuthorityAnswer{.needsAuthentication = true},
        AuthorityAnswer{.failure = "gone"},
        AuthorityAnswer{.isAuthorized = true, .failure = "odd"}}) {
    EXPECT_EQ(CallerPolicy::judge(answer).kind, CallerVerdict::Kind::refuse);
  }
}

TEST(CallerPolicyTest, ARefusalSaysWhatPolkitSaid) {
  EXPECT_EQ(CallerPolicy::judge(AuthorityAnswer{}).reason,
            "polkit does not allow com.quintavel.nodo.keep-awake: a rule of the administrator's "
            "forbids it");
  EXPECT_EQ(CallerPolicy::judge(AuthorityAnswer{.needsAuthentication = true}).reason,
            "only somebody logged in at this computer, or a member of the group nodo, may do this; "
            "see man nodod");
  EXPECT_EQ(CallerPolicy::judge(AuthorityAnswer{.failure = "no such name"}).reason,
            "polkit cannot be asked: no such name; without it only root may do this");
}

// ---- what is told of refusals

TEST(RefusalLogTest, TheFirstIsALineWithTheCallersName) {
  RefusalLog log;
  EXPECT_TRUE(log.isEmpty());
  EXPECT_EQ(log.add(":1.42", person, "because"), "rejected D-Bus caller :1.42 (uid 1000): because");
  EXPECT_EQ(log.add(":1.42", std::nullopt, "because"),
            "rejected D-Bus caller :1.42 (uid unknown): because");
  EXPECT_EQ(log.add(":1.42", person, "also"), "rejected D-Bus caller :1.42 (uid 1000): also");
  EXPECT_FALSE(log.isEmpty());
}

TEST(RefusalLogTest, ThoseThatFollowAreCountedWhateverTheyCallThemselves) {
  RefusalLog log;
  log.add(":1.1", person, "because");
  log.add(":1.3", stranger, "because");
  EXPECT_EQ(log.add(":1.2", person, "because"), std::nullopt);
  EXPECT_EQ(log.add(":1.1", person, "because"), std::nullopt);
  EXPECT_THAT(log.takeCounts(), ElementsAre("rejected 2 more over D-Bus (uid 1000): because"));
  EXPECT_EQ(log.add(":1.1", person, "because"), std::nullopt);
  EXPECT_THAT(log.takeCounts(), ElementsAre("rejected 1 more over D-Bus (uid 1000): because"));
}

TEST(RefusalLogTest, WhatDoesNotGoOnIsForgotten) {
  RefusalLog log;
  log.add(":1.1", person, "because");
  EXPECT_THAT(log.takeCounts(), IsEmpty());
  EXPECT_TRUE(log.isEmpty());
  EXPECT_NE(log.add(":1.1", person, "because"), std::nullopt);
}

TEST(RefusalLogTest, ManyUsersAreOnlyCounted) {
  RefusalLog log;
  for (std::uint32_t user = 0; user < RefusalLog::mostKinds; ++user) {
    EXPECT_NE(log.add(":1.1", user, "because"), std::nullopt);
  }
  EXPECT_EQ(log.add(":1.1", person, "because"), std::nullopt);
  EXPECT_EQ(log.add(":1.1", stranger, "because"), std::nullopt);
  EXPECT_THAT(log.takeCounts(), ElementsAre("rejected 2 more of others over D-Bus"));
}

// ---- who they are

class CallerDirectoryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!PrivateBus::isInstalled()) {
      GTEST_SKIP() << "dbus-daemon is not installed";
    }
    bus = std::make_unique<PrivateBus>();
    peer = openBus(bus->address(), BusDescriptors::refused, BusClock::now() + 60s);
    const char* name = nullptr;
    ASSERT_GE(sd_bus_get_unique_name(peer.get(), &name), 0);
    peerName = name;
  }

  void letPeerLeave() { peer.reset(); }

  std::unique_ptr<PrivateBus> bus;
  BusHandle peer;
  std::string peerName;
};

TEST_F(CallerDirectoryTest, ThePeersUserIsFound) {
  CallerDirectory directory(bus->address());
  EXPECT_EQ(directory.find(peerName).user, ::geteuid());
  EXPECT_TRUE(directory.isThere(peerName));
}

TEST_F(CallerDirectoryTest, APeerThatHasLeftIsNotThere) {
  CallerDirectory directory(bus->address());
  letPeerLeave();
  const BusPeer gone = directory.find(peerName);
  EXPECT_FALSE(gone.isThere);
  EXPECT_EQ(gone.user, std::nullopt);
  EXPECT_FALSE(directory.isThere(peerName));
}

TEST_F(CallerDirectoryTest, OneThatHasLeftIsNotAskedAboutAgain) {
  CallerDirectory directory(bus->address());
  letPeerLeave();
  directory.find(peerName);
  bus->kill();  // nobody could tell any more
  EXPECT_FALSE(directory.find(peerName).isThere);
}

TEST_F(CallerDirectoryTest, WhoWasFoundIsRememberedButNotThatItIsThere) {
  CallerDirectory directory(bus->address());
  directory.find(peerName);
  letPeerLeave();
  EXPECT_EQ(directory.find(peerName).user, ::geteuid());
  EXPECT_FALSE(directory.isThere(peerName));
}

TEST_F(CallerDirectoryTest, TheEarliestIsForgottenForTheNext) {
  CallerDirectory directory(bus->address());
  directory.find(peerName);
  for (std::size_t count = 0; count < CallerDirectory::mostRemembered; ++count) {
    const BusHandle other = openBus(bus->address(), BusDescriptors::refused, BusClock::now() + 60s);
    const char* name = nullptr;
    ASSERT_GE(sd_bus_get_unique_name(other.get(), &name), 0);
    ASSERT_EQ(directory.find(name).user, ::geteuid());
  }
  letPeerLeave();
  EXPECT_FALSE(directory.find(peerName).isThere);
}

TEST_F(CallerDirectoryTest, WithoutTheBusNobodyIsKnownAndNobodyGone) {
  CallerDirectory directory(bus->address());
  bus->kill();
  EXPECT_TRUE(directory.find(peerName).isThere);
  EXPECT_EQ(directory.find(peerName).user, std::nullopt);
  EXPECT_TRUE(directory.isThere(peerName));
}

TEST_F(CallerDirectoryTest, ABusThatHangsIsNotWaitedForWithoutEnd) {
  CallerDirectory directory(bus->address());
  bus->hang();
  EXPECT_EQ(directory.find(peerName).user, std::nullopt);
  const auto began = BusClock::now();
  EXPECT_EQ(directory.find(peerName).user, std::nullopt);
  EXPECT_LT(BusClock::now() - began, twoSecondsTogether.connecting) << "it waited once more";
}

TEST_F(CallerDirectoryTest, WhatABusThatHungDidNotTellIsAskedForAgain) {
  CallerDirectory directory(bus->address());
  bus->hang();
  directory.find(peerName);
  bus->goOn();
  const auto end = BusClock::now() + 60s;
  while (!directory.find(peerName).user && BusClock::now() < end) {
    std::this_thread::yield();
  }
  EXPECT_EQ(directory.find(peerName).user, ::geteuid());
}

}  // namespace
}  // namespace nodo
