#include <NODOCore/daemon/PMSetSleepLock.h>
#include <testing/StandInMac.h>

#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace nodo {
namespace {

using test::StandInMac;
using test::StandInTools;
using test::ToolFault;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

const std::string switchOn = "/usr/bin/pmset -a disablesleep 1";
const std::string switchOff = "/usr/bin/pmset -a disablesleep 0";
const std::string domain = "/usr/sbin/ioreg -r -k AppleClamshellState -d 4";

class PMSetSleepLockTest : public ::testing::Test {
 protected:
  StandInMac mac;
  SleepLock lock = pmsetSleepLock(std::make_shared<StandInTools>(mac), test::waitingOn(mac));

  /// Switches the lock, which fails although nothing is thrown.
  PowerOperationResult refused(bool disabled) {
    PowerOperationResult result = lock.manager->setSleepDisabled(disabled);
    EXPECT_FALSE(result.succeeded());
    EXPECT_FALSE(result.dryRun);
    EXPECT_EQ(result.requestedSleepDisabled, disabled);
    return result;
  }
};

TEST_F(PMSetSleepLockTest, SwitchingIsASuccessOnceTheKernelSaysSo) {
  EXPECT_EQ(lock.manager->setSleepDisabled(true),
            PowerOperationResult(true, false, switchOn, 0, "", ""));
  EXPECT_TRUE(mac.isSleepDisabled());
  EXPECT_EQ(lock.manager->setSleepDisabled(false),
            PowerOperationResult(false, false, switchOff, 0, "", ""));
  EXPECT_FALSE(mac.isSleepDisabled());
  EXPECT_THAT(mac.commandLines, ElementsAre(switchOn, domain, switchOff, domain));
}

TEST_F(PMSetSleepLockTest, TheLockOutlivesTheProcess) {
  EXPECT_FALSE(lock.diesWithProcess);
  EXPECT_FALSE(lock.isSimulated);
}

TEST_F(PMSetSleepLockTest, PowerdIsWaitedForWhileItIsLate) {
  mac.powerdDelay = Seconds(0.3);
  EXPECT_TRUE(lock.manager->setSleepDisabled(true).succeeded());
  EXPECT_NEAR(mac.awake.count(), 0.3, 0.05) << "and no longer";
  EXPECT_TRUE(lock.manager->setSleepDisabled(false).succeeded());
  EXPECT_FALSE(mac.isSleepDisabled());
}

TEST_F(PMSetSleepLockTest, PowerdIsNotWaitedForWithoutEnd) {
  mac.powerdDelay = Seconds(3600);
  EXPECT_EQ(refused(true).standardError, "the kernel says that sleep is not disabled");
  EXPECT_NEAR(mac.awake.count(), VerifiedPowerManager::patience.count(), 0.05);
}

TEST_F(PMSetSleepLockTest, AToolThatSetsNothingAndExitsWellHasFailed) {
  mac.faults[switchOn] = ToolFault::lies;
  const PowerOperationResult result = refused(true);
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.executedCommand, switchOn);
  EXPECT_EQ(result.standardError, "the kernel says that sleep is not disabled");
}

TEST_F(PMSetSleepLockTest, AReleaseThatLiesIsNotDone) {
  lock.manager->setSleepDisabled(true);
  mac.faults[switchOff] = ToolFault::lies;
  EXPECT_EQ(refused(false).standardError, "the kernel says that sleep is disabled");
  EXPECT_TRUE(mac.isSleepDisabled());
}

TEST_F(PMSetSleepLockTest, AKernelThatCannotBeAskedIsNoProof) {
  for (const ToolFault fault :
       {ToolFault::lies, ToolFault::refuses, ToolFault::hangs, ToolFault::missing}) {
    mac.faults["/usr/sbin/ioreg"] = fault;
    for (const bool disabled : {true, false}) {
      EXPECT_EQ(refused(disabled).standardError,
                "the kernel does not say whether sleep is disabled");
    }
    EXPECT_EQ(lock.isHeld(), std::nullopt);
  }
}

TEST_F(PMSetSleepLockTest, AKernelThatCannotBeAskedIsNotAskedForLongerThanItsTool) {
  mac.faults["/usr/sbin/ioreg"] = ToolFault::hangs;
  refused(true);
  EXPECT_EQ(mac.awake, toolTimeLimit) << "one look";
}

TEST_F(PMSetSleepLockTest, AToolThatFailsKeepsItsStatusAndIsNotWaitedFor) {
  mac.faults[switchOn] = ToolFault::refuses;
  const PowerOperationResult result = refused(true);
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.standardError, "refused; the kernel says that sleep is not disabled");
  EXPECT_EQ(mac.awake, Seconds(0));
}

// Says something on both streams, and sets nothing.
class TalkingManager : public PowerManaging {
 public:
  PowerOperationResult setSleepDisabled(bool disabled) override {
    return {disabled, false, "tool", exitCode, "must be run as root...\n", "a word"};
  }

  std::int32_t exitCode = 0;
};

TEST_F(PMSetSleepLockTest, TheToolsOwnWordsStandBeforeTheKernels) {
  for (const std::int32_t exitCode : {0, 77}) {
    auto talking = std::make_unique<TalkingManager>();
    talking->exitCode = exitCode;
    VerifiedPowerManager manager(
        std::move(talking), [] { return std::optional(false); }, test::waitingOn(mac));
    EXPECT_EQ(manager.setSleepDisabled(true),
              PowerOperationResult(true, false, "tool", exitCode == 0 ? 1 : 77,
                                   "must be run as root...\n",
                                   "a word; must be run as root...; "
                                   "the kernel says that sleep is not disabled"));
  }
}

TEST_F(PMSetSleepLockTest, APreviewIsNotVerified) {
  VerifiedPowerManager manager(
      std::make_unique<NoopPowerManager>(), [] { return std::optional(false); },
      test::waitingOn(mac));
  EXPECT_EQ(manager.setSleepDisabled(true), NoopPowerManager().setSleepDisabled(true));
}

TEST_F(PMSetSleepLockTest, AToolThatIsKilledOrMissingIsAnError) {
  for (const ToolFault fault : {ToolFault::hangs, ToolFault::missing}) {
    mac.faults["/usr/bin/pmset"] = fault;
    EXPECT_THROW(lock.manager->setSleepDisabled(true), std::system_error);
    EXPECT_THROW(lock.manager->requestSleepNow(), std::system_error);
  }
}

TEST_F(PMSetSleepLockTest, SleepIsRefusedAsLongAsTheKernelHasTheLock) {
  mac.powerdDelay = Seconds(0.3);
  lock.manager->setSleepDisabled(true);
  EXPECT_EQ(lock.manager->requestSleepNow().exitCode, 71);
  EXPECT_FALSE(mac.isAsleep);
  lock.manager->setSleepDisabled(false);
  EXPECT_EQ(lock.manager->requestSleepNow().exitCode, 0);
  EXPECT_TRUE(mac.isAsleep);
}

TEST_F(PMSetSleepLockTest, WhetherItIsHeldIsTheKernelsWordAndNotThePreferences) {
  EXPECT_EQ(lock.isHeld(), false) << "never set";
  mac.powerdDelay = Seconds(60);
  mac.run("/usr/bin/pmset", {"-a", "disablesleep", "1"});
  EXPECT_THAT(mac.run("/usr/bin/pmset", {"-g", "live"}).standardOutput, HasSubstr("\t1\n"));
  EXPECT_EQ(lock.isHeld(), false);
  mac.pass(Seconds(60));
  EXPECT_EQ(lock.isHeld(), true);
}

TEST_F(PMSetSleepLockTest, ALockComesBackWithTheMachineFromThePreference) {
  lock.manager->setSleepDisabled(true);
  mac.powerdDelay = Seconds(5);
  mac.restart();
  EXPECT_EQ(lock.isHeld(), false);
  mac.pass(Seconds(5));
  EXPECT_EQ(lock.isHeld(), true);
  mac.source = PowerSource::battery;
  mac.setLidClosed(true);
  mac.needsEmergencySleep();
  EXPECT_FALSE(mac.isAsleep) << "nothing saves it";
}

TEST_F(PMSetSleepLockTest, AMacWithoutALidIsAskedByTheDomainsClass) {
  mac.lidClosed.reset();
  EXPECT_EQ(lock.isHeld(), false);
  EXPECT_TRUE(lock.manager->setSleepDisabled(true).succeeded());
  EXPECT_EQ(lock.isHeld(), true);
}

TEST(KernelSleepDisabledTest, OnlyThePropertyItselfIsRead) {
  const struct {
    const char* text;
    std::optional<bool> expected;
  } cases[] = {
      {"+-o IOPMrootDomain  <class IOPMrootDomain>\n  {\n    \"SleepDisabled\" = Yes\n  }\n", true},
      {"+-o IOPMrootDomain\n    \"SleepDisabled\" = No\r\n", false},
      {"+-o IOPMrootDomain\n    | \"SleepDisabled\" = Yes", true},
      {"+-o IOPMrootDomain\n  {\n    \"AppleClamshellState\" = Yes\n  }\n", false},
      {"    \"AppleClamshellState\" = No\n", false},
      {"+-o IOPMrootDomain\n    \"UserSleepDisabled\" = Yes\n", false},
      {"+-o IOPMrootDomain\n    \"SleepDisabledBy\" = Yes\n", false},
      {"+-o IOPMrootDomain\n    \"SleepDisabled\" = 7\n", std::nullopt},
      {"+-o IOPMrootDomain\n    \"SleepDisabled\" = \n", std::nullopt},
      {"+-o AnotherDomain\n", std::nullopt},
      {"", std::nullopt},
  };

  for (const auto& each : cases) {
    EXPECT_EQ(kernelSleepDisabled(each.text), each.expected) << each.text;
  }
}

}  // namespace
}  // namespace nodo
