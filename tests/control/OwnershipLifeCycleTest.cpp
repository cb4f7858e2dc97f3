#include <testing/DiskFull.h>

#include <string>
#include <system_error>

#include <tests/control/ControllerFixture.h>

namespace nodo {
namespace {

using Behaviour = test::FakePowerManager::Behaviour;

// What one pass meets, and what it must leave behind.
struct Case {
  const char* name;
  bool owned;      // before the pass
  bool timerRuns;  // so the lock is wanted
  Behaviour behaviour;
  bool saveFails;
  bool expectError;
  bool expectOwned;       // as stored
  bool expectLock;        // as the machine has it
  std::size_t newAudits;  // as stored
};

constexpr Case cases[] = {
    {"wanted, works", false, true, Behaviour::works, false, false, true, true, 1},
    {"wanted, exits 1", false, true, Behaviour::fails, false, false, false, false, 1},
    {"wanted, dry run", false, true, Behaviour::simulates, false, false, false, false, 1},
    {"wanted, cannot be started", false, true, Behaviour::cannotRun, false, true, false, false, 0},
    {"wanted, works, save fails", false, true, Behaviour::works, true, true, false, true, 0},
    {"wanted, exits 1, save fails", false, true, Behaviour::fails, true, true, false, false, 0},
    {"held and wanted", true, true, Behaviour::works, false, false, true, true, 0},
    {"held and wanted, tool broken", true, true, Behaviour::cannotRun, false, false, true, true, 0},
    {"held and wanted, disk full", true, true, Behaviour::works, true, false, true, true, 0},
    {"held, works", true, false, Behaviour::works, false, false, false, false, 1},
    {"held, exits 1", true, false, Behaviour::fails, false, false, true, true, 1},
    {"held, dry run", true, false, Behaviour::simulates, false, false, true, true, 1},
    {"held, cannot be started", true, false, Behaviour::cannotRun, false, true, true, true, 0},
    {"held, works, save fails", true, false, Behaviour::works, true, true, true, false, 0},
    {"held, exits 1, save fails", true, false, Behaviour::fails, true, true, true, true, 0},
    {"neither held nor wanted", false, false, Behaviour::works, false, false, false, false, 0},
    {"neither, tool broken", false, false, Behaviour::cannotRun, false, false, false, false, 0},
};

class OwnershipLifeCycleTest : public ControllerFixture {
 protected:
  void setScene(const Case& each) {
    power = test::FakePowerManager();
    power.isSleepDisabled = each.owned;
    NODOState state = NODOState::fresh(now);
    state.ownsSleepDisable = each.owned;
    if (each.timerRuns) {
      state.manualUntil = now + Seconds(600);
    }
    put(state);
    power.behaviour = each.behaviour;
  }

  // A due release with the lid closed on battery, after which the tool behaves like that.
  void releaseWithASleepRequestThat(Behaviour behaviour) {
    closeLidOnBattery();
    setScene({.owned = true, .behaviour = Behaviour::works});
    power.beforeOperation = [this, behaviour](PowerOperationAction action) {
      if (action == PowerOperationAction::sleepNow) {
        power.behaviour = behaviour;
      }
    };
  }

  // Whether the pass ended with an error.
  bool runPass(bool saveFails) {
    std::optional<test::DiskFull> full;
    if (saveFails) {
      full.emplace();
    }
    try {
      reconcile(power.isSleepDisabled);
      return false;
    } catch (const std::system_error&) {
      return true;
    }
  }
};

TEST_F(OwnershipLifeCycleTest, OwnershipFollowsOnlyWhatReallyHappenedAndWasSaved) {
  for (const Case& each : cases) {
    SCOPED_TRACE(each.name);
    setScene(each);
    const std::string before = storedText();

    EXPECT_EQ(runPass(each.saveFails), each.expectError);

    EXPECT_EQ(stored().ownsSleepDisable, each.expectOwned);
    EXPECT_EQ(power.isSleepDisabled, each.expectLock);
    EXPECT_EQ(stored().powerOperationHistory.size(), each.newAudits);
    if (each.expectError || each.newAudits == 0) {
      EXPECT_EQ(storedText(), before);
    }
  }
}

TEST_F(OwnershipLifeCycleTest, TheNextPassMendsWhateverWentWrong) {
  for (const Case& each : cases) {
    SCOPED_TRACE(each.name);
    setScene(each);
    runPass(each.saveFails);

    power.behaviour = Behaviour::works;
    reconcile(power.isSleepDisabled);

    EXPECT_EQ(power.isSleepDisabled, each.timerRuns);
    EXPECT_EQ(stored().ownsSleepDisable, each.timerRuns);
  }
}

TEST_F(OwnershipLifeCycleTest, ASleepRequestThatCannotBeMadeLeavesTheReleaseOnDisk) {
  releaseWithASleepRequestThat(Behaviour::cannotRun);
  EXPECT_TRUE(runPass(false));
  EXPECT_FALSE(stored().ownsSleepDisable);
  ASSERT_EQ(stored().powerOperationHistory.size(), 1U);
  EXPECT_EQ(stored().lastPowerOperation->action, PowerOperationAction::enableSleep);
}

TEST_F(OwnershipLifeCycleTest, ASleepRequestThatIsRefusedIsAudited) {
  releaseWithASleepRequestThat(Behaviour::fails);
  EXPECT_FALSE(runPass(false));
  EXPECT_FALSE(stored().ownsSleepDisable);
  EXPECT_EQ(stored().lastPowerOperation->reason, "closed_lid_release");
  EXPECT_EQ(stored().lastPowerOperation->exitCode, 1);
}

}  // namespace
}  // namespace nodo
