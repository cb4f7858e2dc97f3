#include <platform/DaemonMachine.h>
#include <testing/EnvironmentVariable.h>

#include <optional>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

namespace nodo {
namespace {

using test::EnvironmentVariable;

const std::string nowhere = "unix:path=/nowhere/at/all";

TEST(DaemonMachineTest, TheStateFolderIsTheOneThatIsNamed) {
  const Environment environment{
      {"NODO_STATE_DIR", "/a"}, {"STATE_DIRECTORY", "/b"}, {"HOME", "/home/x"}};
  EXPECT_EQ(daemonStateFolder(environment, "system"), "/a");
  EXPECT_EQ(daemonStateFolder(environment, "session"), "/a");
}

TEST(DaemonMachineTest, ElseTheServiceManagers) {
  EXPECT_EQ(daemonStateFolder({{"STATE_DIRECTORY", "/b"}}, "system"), "/b");
  EXPECT_EQ(daemonStateFolder({{"STATE_DIRECTORY", "/b:/c"}}, "system"), "/b");
  EXPECT_EQ(daemonStateFolder({{"STATE_DIRECTORY", "/b"}, {"HOME", "/home/x"}}, "session"), "/b");
}

TEST(DaemonMachineTest, ElseTheOneForThisKindOfBus) {
  const Environment environment{
      {"NODO_STATE_DIR", ""}, {"STATE_DIRECTORY", ""}, {"HOME", "/home/x"}};
  EXPECT_EQ(daemonStateFolder(environment, "system"), "/var/lib/nodo");
  EXPECT_EQ(daemonStateFolder(environment, "unix:path=/some/bus"), "/var/lib/nodo");
  EXPECT_EQ(daemonStateFolder(environment, "session"), "/home/x/.nodo/daemon");
}

TEST(DaemonMachineTest, WithoutASystemBusItIsTheSessionsFolder) {
  const EnvironmentVariable noSystemBus("DBUS_SYSTEM_BUS_ADDRESS", nowhere);
  EXPECT_EQ(daemonStateFolder({{"HOME", "/home/x"}}, std::nullopt), "/home/x/.nodo/daemon");
}

TEST(DaemonMachineTest, TheSessionsFolderNeedsAHome) {
  EXPECT_THROW(daemonStateFolder({}, "session"), std::runtime_error);
  EXPECT_THROW(daemonStateFolder({{"HOME", ""}}, "session"), std::runtime_error);
  EXPECT_EQ(daemonStateFolder({}, "system"), "/var/lib/nodo");
}

TEST(DaemonMachineTest, ASimulatedLockNeverStandsAndSwitchesNothing) {
  const SleepLock lock = makeSleepLock(PowerChoice::simulated);
  EXPECT_TRUE(lock.isSimulated);
  EXPECT_TRUE(lock.manager->setSleepDisabled(true).dryRun);
  EXPECT_EQ(lock.isHeld(), false);
}

TEST(DaemonMachineTest, WithoutABusOnlyTheSimulationIsLeft) {
  const EnvironmentVariable noSystemBus("DBUS_SYSTEM_BUS_ADDRESS", nowhere);
  EXPECT_TRUE(makeSleepLock(PowerChoice::automatic).isSimulated);
  EXPECT_THROW(makeSleepLock(PowerChoice::logind), std::runtime_error);
}

TEST(DaemonMachineTest, AToolOfAnotherSystemIsRefusedWithWhatThereIs) {
  try {
    makeSleepLock(PowerChoice::pmset);
    FAIL() << "pmset was found";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "this system has no pmset; it offers auto, logind and simulated");
  }
}

}  // namespace
}  // namespace nodo
