#include <platform/DaemonMachine.h>
#include <platform/macos/ProcessInfo.h>

#include <iterator>
#include <optional>
#include <stdexcept>

#include <gtest/gtest.h>

#include <tests/macos/FakeMac.h>

namespace nodo {
namespace {

TEST(MacDaemonMachineTest, ASimulatedLockSwitchesNothing) {
  const SleepLock simulated = makeSleepLock(PowerChoice::simulated);
  EXPECT_TRUE(simulated.isSimulated);
  EXPECT_TRUE(simulated.manager->setSleepDisabled(true).dryRun);
  EXPECT_EQ(simulated.isHeld(), false);
}

TEST(MacDaemonMachineTest, PMSetIsWhatThisSystemHas) {
  for (const PowerChoice choice : {PowerChoice::automatic, PowerChoice::pmset}) {
    EXPECT_FALSE(makeSleepLock(choice).isSimulated);
  }
  try {
    makeSleepLock(PowerChoice::logind);
    FAIL() << "there is a logind";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "this system has no logind; it offers auto, pmset and simulated");
  }
}

TEST(MacDaemonMachineTest, TheStateIsInTheSystemsFolderUnlessItIsSetOtherwise) {
  EXPECT_EQ(daemonStateFolder({}, "session"), "/Library/Application Support/nodo");
  EXPECT_EQ(daemonStateFolder({{"NODO_STATE_DIR", "/x"}}, std::nullopt), "/x");
}

TEST(MacDaemonMachineTest, ItsStrainIsWhatTheSystemSaysOfIt) {
  test::FakeMac& mac = test::FakeMac::instance();
  mac.reset();
  const std::optional<ThermalPressure> pressures[] = {
      ThermalPressure::nominal, ThermalPressure::fair, ThermalPressure::serious,
      ThermalPressure::critical, std::nullopt};
  for (long state = 0; state < std::ssize(pressures); ++state) {
    mac.thermalState = state;
    mac.isInLowPowerMode = state % 2 != 0;
    EXPECT_EQ(readMachineStrain(), (MachineStrain{.thermalPressure = pressures[state],
                                                  .hotZone = std::nullopt,
                                                  .lowPowerMode = state % 2 != 0}))
        << state;
  }
}

}  // namespace
}  // namespace nodo
