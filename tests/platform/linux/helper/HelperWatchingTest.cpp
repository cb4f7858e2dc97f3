#include <NODOCore/helper/NODOHelperXPCClient.h>
#include <NODOCore/helper/NODOHelperXPCProtocol.h>
#include <platform/HelperMachine.h>
#include <testing/EnvironmentVariable.h>
#include <testing/TemporaryFolder.h>

#include <exception>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include <tests/platform/linux/bus/PrivateBus.h>

namespace nodo {
namespace {

// A bus that would start a daemon, which leaves a file and fails.
class HelperWatchingTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!PrivateBus::isInstalled()) {
      GTEST_SKIP() << "dbus-daemon is not installed";
    }
    std::filesystem::create_directories(data / "dbus-1/services");
    std::ofstream(data / ("dbus-1/services/" + name + ".service"))
        << "[D-BUS Service]\nName=" << name << "\nExec=/bin/sh -c \"touch " << started.string()
        << "; exit 1\"\n";
    bus = std::make_unique<PrivateBus>();
  }

  bool isAnswered(const std::shared_ptr<const HelperConnecting>& connecting) const {
    try {
      NODOHelperXPCClient{name, 60, connecting}.status();
      return true;
    } catch (const std::exception&) {
      return false;
    }
  }

  test::TemporaryFolder data;
  test::EnvironmentVariable home{"XDG_DATA_HOME", data.path().string()};
  std::string name{NODOServiceConstants::helperMachServiceName};
  std::filesystem::path started = data / "started";
  std::unique_ptr<PrivateBus> bus;
};

TEST_F(HelperWatchingTest, WhoOnlyWatchesStartsNoDaemonThatWasStopped) {
  EXPECT_FALSE(isAnswered(helperWatching(bus->address())));
  EXPECT_FALSE(std::filesystem::exists(started));
}

TEST_F(HelperWatchingTest, WhoWantsSomethingDoes) {
  EXPECT_FALSE(isAnswered(helperConnecting(bus->address())));
  EXPECT_TRUE(std::filesystem::exists(started));
}

}  // namespace
}  // namespace nodo
