#include <platform/linux/CallerDirectory.h>

#include <memory>
#include <optional>

#include <gtest/gtest.h>

#include <systemd/sd-bus.h>
#include <tests/platform/linux/PrivateBus.h>
#include <unistd.h>

namespace nodo {
namespace {

using namespace std::chrono_literals;

class CallerDirectoryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!PrivateBus::isInstalled()) {
      GTEST_SKIP() << "dbus-daemon is not installed";
    }
    bus = std::make_unique<PrivateBus>();
    peer = openBus(bus->address(), BusDescriptors::refused, 60s, "connect");
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
    const BusHandle other = openBus(bus->address(), BusDescriptors::refused, 60s, "connect");
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
}

}  // namespace
}  // namespace nodo
