#include <platform/DaemonMachine.h>

#include <optional>
#include <stdexcept>

#include <gtest/gtest.h>

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

}  // namespace
}  // namespace nodo
