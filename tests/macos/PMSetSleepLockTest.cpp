#include <platform/DaemonMachine.h>
#include <platform/macos/MacDaemonLoop.h>
#include <testing/ScriptedCommandRunner.h>

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace nodo {
namespace {

using test::ScriptedCommandRunner;

class PMSetSleepLockTest : public ::testing::Test {
 protected:
  const std::shared_ptr<ScriptedCommandRunner> runner = std::make_shared<ScriptedCommandRunner>();
  const SleepLock lock = pmsetSleepLock(runner);
};

TEST_F(PMSetSleepLockTest, TheLockIsSwitchedByPMSetAndOutlivesTheProcess) {
  EXPECT_EQ(lock.manager->setSleepDisabled(true).exitCode, 0);
  EXPECT_EQ(runner->commandLines(), std::vector<std::string>{"/usr/bin/pmset -a disablesleep 1"});
  EXPECT_FALSE(lock.diesWithProcess);
  EXPECT_FALSE(lock.isSimulated);
}

TEST_F(PMSetSleepLockTest, WhetherItIsHeldIsTheMachinesOwnLiveSetting) {
  runner->answer("/usr/bin/pmset -g live", " SleepDisabled\t\t1\n");
  EXPECT_EQ(lock.isHeld(), true);
  runner->answer("/usr/bin/pmset -g live", " SleepDisabled\t\t0\n");
  EXPECT_EQ(lock.isHeld(), false);
  EXPECT_EQ(runner->commandLines().size(), 2U) << "nothing else is run for it";
}

TEST_F(PMSetSleepLockTest, WhenTheMachineCannotTellNothingIsKnown) {
  runner->answer("/usr/bin/pmset -g live", "");
  EXPECT_EQ(lock.isHeld(), std::nullopt);
  runner->removeTool("/usr/bin/pmset");
  EXPECT_EQ(lock.isHeld(), std::nullopt);
}

TEST_F(PMSetSleepLockTest, ASimulatedLockSwitchesNothing) {
  const SleepLock simulated = makeSleepLock(PowerChoice::simulated);
  EXPECT_TRUE(simulated.isSimulated);
  EXPECT_TRUE(simulated.manager->setSleepDisabled(true).dryRun);
  EXPECT_EQ(simulated.isHeld(), false);
}

TEST_F(PMSetSleepLockTest, PMSetIsWhatThisSystemHas) {
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

TEST_F(PMSetSleepLockTest, TheStateIsInTheSystemsFolderUnlessItIsSetOtherwise) {
  EXPECT_EQ(daemonStateFolder({}, "session"), "/Library/Application Support/nodo");
  EXPECT_EQ(daemonStateFolder({{"NODO_STATE_DIR", "/x"}}, std::nullopt), "/x");
}

}  // namespace
}  // namespace nodo
