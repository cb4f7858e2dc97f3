#include <testing/EnvironmentVariable.h>

#include <tests/daemon/DaemonFixture.h>

namespace nodo {
namespace {

using ::testing::ElementsAre;
using ::testing::SizeIs;

std::string until(const std::string& clock) {
  return "nodo keeps this computer awake until " + clock + "; nodoctl off";
}

/// What people see of a lock that is held: its terms, and their screens as the lid closes. The
/// clock shows 08:15:00 at first.
class HeldLockTest : public DaemonFixture {
 protected:
  void closeLid(bool closed) {
    machine->lidClosed = closed;
    loop.handlers.machineChanged({News::lid});
  }

  std::vector<std::string> whys() const {
    std::vector<std::string> all;
    for (const LockTerms& each : terms) {
      all.push_back(each.why);
    }
    return all;
  }

  test::EnvironmentVariable zone{"TZ", "UTC0"};
};

// ---- until when it is held

TEST_F(HeldLockTest, TheLockSaysUntilWhenAndHowItIsEndedBeforeItIsTaken) {
  start();
  power.beforeOperation = [this](PowerOperationAction) {
    EXPECT_THAT(whys(), ElementsAre(until("08:35")));
  };
  askManual(20);
  EXPECT_TRUE(power.isSleepDisabled);
  EXPECT_THAT(terms, ElementsAre(LockTerms{.why = until("08:35"), .keepsDisplayOn = false}));
}

TEST_F(HeldLockTest, ALockWhoseTimerEndsOnAnotherDaySaysWhich) {
  start();
  pass(Seconds(15 * 3600));  // 23:15
  askManual(60);
  EXPECT_THAT(whys(), ElementsAre(until("2026-02-01 00:15")));
  wait(50 * 60);
  EXPECT_THAT(whys(), SizeIs(1)) << "what it says is as true on the next day";
}

TEST_F(HeldLockTest, TheTermsFollowTheTimerAndNoOperationIsRecordedForThat) {
  start();
  askManual(20);
  askManual(30);
  EXPECT_THAT(whys(), ElementsAre(until("08:35"), until("08:45")));
  EXPECT_THAT(auditReasons(), ElementsAre("enable:manual_timer"));
  EXPECT_THAT(power.operations, SizeIs(1));
  EXPECT_THAT(lines, SizeIs(1));
}

TEST_F(HeldLockTest, APassThatChangesNothingLeavesTheTermsAlone) {
  start();
  askManual(20);
  wait(600);
  machineChanged();
  askReconcile();
  EXPECT_THAT(terms, SizeIs(1));
}

TEST_F(HeldLockTest, AnExtensionByLessThanWhatPeopleSeeIsNone) {
  start();
  askManual(20);
  pass(Seconds(59));
  askManualV2(20, true, "Codex");
  EXPECT_THAT(terms, SizeIs(1));
  pass(Seconds(1));
  askManualV2(20, true, "Codex");
  EXPECT_THAT(whys(), ElementsAre(until("08:35"), until("08:36")));
}

TEST_F(HeldLockTest, ALockThatGoesIsNotRenewedBefore) {
  start();
  askManual(20);
  askStop();
  askManual(1);
  wait(120);
  EXPECT_FALSE(power.isSleepDisabled);
  EXPECT_THAT(whys(), ElementsAre(until("08:35"), until("08:16")));
}

TEST_F(HeldLockTest, RefusedTermsAreToldOfOnceTriedAgainAndCostNothingElse) {
  start();
  askManual(20);
  termsAreRefused = true;
  lines.clear();
  EXPECT_FALSE(askManual(30).error);
  wait(120);
  EXPECT_TRUE(power.isSleepDisabled);
  EXPECT_THAT(lines, ElementsAre("the sleep lock does not tell until when it is held: refused"));
  termsAreRefused = false;
  wait(60);
  EXPECT_THAT(whys(), ElementsAre(until("08:35"), until("08:45")));
  EXPECT_THAT(auditReasons(), ElementsAre("enable:manual_timer"));
}

TEST_F(HeldLockTest, ADaemonThatTakesItsLockAgainSaysUntilWhen) {
  putTimer(600, true);
  start();
  EXPECT_TRUE(power.isSleepDisabled);
  EXPECT_THAT(whys(), ElementsAre(until("08:25")));
}

TEST_F(HeldLockTest, TheDisplayIsKeptOnWhereThatIsSet) {
  settings.keepDisplayOn = true;
  start();
  askManual(20);
  EXPECT_THAT(terms, ElementsAre(LockTerms{.why = until("08:35"), .keepsDisplayOn = true}));
}

TEST_F(HeldLockTest, TheDisplayMayBeKeptOnFromNowOn) {
  WatchedLock lock(makeLock());
  lock.setTerms(now + Seconds(60), false, now);
  lock.setTerms(now + Seconds(60), true, now);
  lock.setTerms(now + Seconds(60), true, now);
  EXPECT_THAT(terms, ElementsAre(LockTerms{.why = until("08:16"), .keepsDisplayOn = false},
                                 LockTerms{.why = until("08:16"), .keepsDisplayOn = true}));
}

TEST_F(HeldLockTest, ALockThatTellsNobodyIsHeldAllTheSame) {
  WatchedLock lock(simulatedSleepLock());
  EXPECT_NO_THROW(lock.setTerms(now + Seconds(60), false, now));
  EXPECT_NO_THROW(lock.lockSessions());
}

// ---- the lid

TEST_F(HeldLockTest, ALidThatClosesUnderAHeldLockLocksTheSessionsOnceForEachTime) {
  machine->lidClosed = false;
  start();
  askManual(20);
  closeLid(true);
  EXPECT_EQ(sessionLocks, 1);
  wait(180);
  askManual(30);
  EXPECT_EQ(sessionLocks, 1);
  closeLid(false);
  EXPECT_EQ(sessionLocks, 1);
  closeLid(true);
  EXPECT_EQ(sessionLocks, 2);
  EXPECT_TRUE(power.isSleepDisabled);
}

TEST_F(HeldLockTest, ALidThatClosesWithoutALockIsLeftToTheSystem) {
  machine->lidClosed = false;
  start();
  closeLid(true);
  askManual(20);
  EXPECT_TRUE(power.isSleepDisabled);
  EXPECT_EQ(sessionLocks, 0) << "it was closed when the lock was taken";
}

TEST_F(HeldLockTest, ALidThatIsFoundClosedAsTheLockIsTakenLocksNothing) {
  machine->lidClosed = false;
  start();
  machine->lidClosed = true;
  askManual(20);
  EXPECT_TRUE(power.isSleepDisabled);
  EXPECT_EQ(sessionLocks, 0);
}

TEST_F(HeldLockTest, ALidThatIsClosedAtTheStartLocksNothing) {
  machine->lidClosed = true;
  putTimer(600, true);
  start();
  wait(120);
  EXPECT_TRUE(power.isSleepDisabled);
  EXPECT_EQ(sessionLocks, 0);
}

TEST_F(HeldLockTest, ALidThatCouldNotBeSeenMeanwhileHasClosedAllTheSame) {
  machine->lidClosed = false;
  start();
  askManual(20);
  machine->lidClosed.reset();
  wait(60);
  closeLid(true);
  EXPECT_EQ(sessionLocks, 1);
}

TEST_F(HeldLockTest, ALidThatClosesAsTheStateCannotBeReadIsSeenByTheNextPass) {
  machine->lidClosed = false;
  start();
  askManual(20);
  const std::string state = folder.read("state/state.json");
  breakState();
  closeLid(true);
  EXPECT_EQ(sessionLocks, 0);
  folder.write("state/state.json", state);
  wait(60);
  EXPECT_EQ(sessionLocks, 1);
}

TEST_F(HeldLockTest, SessionsThatCannotBeLockedAreALineOfTheLogAndNoFailure) {
  machine->lidClosed = false;
  sessionLocksFail = true;
  start();
  askManual(20);
  lines.clear();
  closeLid(true);
  wait(120);
  EXPECT_THAT(lines, ElementsAre("the lid was closed, but the sessions could not be locked: "
                                 "refused"));
  EXPECT_EQ(sessionLocks, 1);
  EXPECT_TRUE(power.isSleepDisabled);
  EXPECT_TRUE(loop.seen) << "the pass went through";
}

TEST_F(HeldLockTest, TheSessionsStayOpenWhereThatIsSet) {
  machine->lidClosed = false;
  settings.lockOnLidClose = false;
  start();
  askManual(20);
  closeLid(true);
  EXPECT_EQ(sessionLocks, 0);
  EXPECT_THAT(lines, ElementsAre("sleep lock switched on (enable:manual_timer)"));
}

}  // namespace
}  // namespace nodo
