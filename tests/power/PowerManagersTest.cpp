#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/power/PowerManaging.h>
#include <testing/ScriptedCommandRunner.h>

#include <cerrno>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace nodo {
namespace {

using test::ScriptedCommandRunner;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using Action = PowerOperationAction;

class PMSetPowerManagerTest : public ::testing::Test {
 protected:
  std::shared_ptr<ScriptedCommandRunner> runner = std::make_shared<ScriptedCommandRunner>();
  PMSetPowerManager manager{runner, false};
  PMSetPowerManager simulator{runner, true};
};

TEST_F(PMSetPowerManagerTest, SwitchingTheLockRunsPMSet) {
  EXPECT_EQ(manager.setSleepDisabled(true),
            PowerOperationResult(true, false, "/usr/bin/pmset -a disablesleep 1", 0, "", "",
                                 Action::disableSleep));
  EXPECT_EQ(manager.setSleepDisabled(false),
            PowerOperationResult(false, false, "/usr/bin/pmset -a disablesleep 0", 0, "", "",
                                 Action::enableSleep));
  EXPECT_THAT(runner->commandLines(),
              ElementsAre("/usr/bin/pmset -a disablesleep 1", "/usr/bin/pmset -a disablesleep 0"));
}

TEST_F(PMSetPowerManagerTest, AskingForSleepRunsPMSet) {
  EXPECT_EQ(manager.requestSleepNow(), PowerOperationResult(false, false, "/usr/bin/pmset sleepnow",
                                                            0, "", "", Action::sleepNow));
  EXPECT_THAT(runner->commandLines(), ElementsAre("/usr/bin/pmset sleepnow"));
}

TEST_F(PMSetPowerManagerTest, ARefusalIsAResult) {
  runner->answer("/usr/bin/pmset -a disablesleep 0", "out\n", 77, "must be run as root\n");
  EXPECT_EQ(manager.setSleepDisabled(false),
            PowerOperationResult(false, false, "/usr/bin/pmset -a disablesleep 0", 77, "out\n",
                                 "must be run as root\n", Action::enableSleep));
  runner->answer("/usr/bin/pmset sleepnow", "", 1, "no\n");
  EXPECT_EQ(manager.requestSleepNow().exitCode, 1);
}

TEST_F(PMSetPowerManagerTest, AMissingToolIsAnError) {
  runner->removeTool("/usr/bin/pmset");
  EXPECT_THROW(manager.setSleepDisabled(true), std::system_error);
  EXPECT_THROW(manager.requestSleepNow(), std::system_error);
}

TEST_F(PMSetPowerManagerTest, ADryRunSaysWhatItWouldRun) {
  runner->removeTool("/usr/bin/pmset");
  const PowerOperationResult result = simulator.setSleepDisabled(true);
  EXPECT_EQ(result, PowerOperationResult(true, true, "/usr/bin/pmset -a disablesleep 1",
                                         std::nullopt, "", "", Action::disableSleep));
  EXPECT_EQ(simulator.setSleepDisabled(false).executedCommand, "/usr/bin/pmset -a disablesleep 0");
  EXPECT_EQ(simulator.requestSleepNow(),
            PowerOperationResult(false, true, "/usr/bin/pmset sleepnow", std::nullopt, "", "",
                                 Action::sleepNow));
  EXPECT_THAT(runner->commandLines(), IsEmpty());
  EXPECT_THAT(encodeJSON(result, JSONLayout::compact), Not(HasSubstr("exitCode")));
}

TEST(NoopPowerManagerTest, ItDoesNothingAndSaysSo) {
  NoopPowerManager manager;
  EXPECT_EQ(
      manager.setSleepDisabled(true),
      PowerOperationResult(true, true, std::nullopt, std::nullopt, "", "", Action::disableSleep));
  EXPECT_EQ(
      manager.setSleepDisabled(false),
      PowerOperationResult(false, true, std::nullopt, std::nullopt, "", "", Action::enableSleep));
  EXPECT_EQ(manager.requestSleepNow(), PowerOperationResult(false, true, std::nullopt, std::nullopt,
                                                            "", "", Action::sleepNow));
}

// A manager that knows no way to put the machine to sleep.
class LockOnly : public PowerManaging {
 public:
  PowerOperationResult setSleepDisabled(bool disabled) override {
    return {disabled, false, std::nullopt, 0, "", ""};
  }
};

TEST(PowerManagingTest, AManagerThatCannotRequestSleepReportsADryRun) {
  EXPECT_EQ(LockOnly().requestSleepNow(), NoopPowerManager().requestSleepNow());
}

}  // namespace
}  // namespace nodo
