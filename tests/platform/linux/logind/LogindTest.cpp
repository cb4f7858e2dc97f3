#include <platform/linux/logind/Logind.h>

#include <gtest/gtest.h>

namespace nodo {
namespace {

constexpr std::uint32_t someUser = 1001;

const Inhibitor nodosLock{.what = "sleep:handle-lid-switch",
                          .who = "nodo",
                          .why = "nodo keeps this computer awake until 15:40; nodoctl off",
                          .mode = "block",
                          .uid = 0,
                          .pid = 77};

SleepDiagnosticsReport diagnose(const std::vector<Inhibitor>& inhibitors,
                                const std::string& blocked = "") {
  return logindDiagnostics(inhibitors, blocked, someUser, dateFromSeconds(1769847300));
}

TEST(LogindDiagnosticsTest, WithoutInhibitorsEverythingIsOff) {
  const SleepDiagnosticsReport report = diagnose({});
  EXPECT_EQ(report.generatedAt, dateFromSeconds(1769847300));
  EXPECT_EQ(report.sleepDisabled, false);
  EXPECT_FALSE(report.sleepLine);
  EXPECT_TRUE(report.blockers.empty());
  EXPECT_EQ(report.assertionStatuses.at("sleep"), false);
  EXPECT_EQ(report.assertionStatuses.at("handle-lid-switch"), false);
}

TEST(LogindDiagnosticsTest, WhatIsBlockedIsFlagged) {
  const auto statuses = diagnose({}, "sleep:handle-lid-switch").assertionStatuses;
  EXPECT_TRUE(statuses.at("sleep"));
  EXPECT_TRUE(statuses.at("handle-lid-switch"));
  EXPECT_FALSE(statuses.at("idle"));
  EXPECT_FALSE(statuses.at("shutdown"));
}

TEST(LogindDiagnosticsTest, AnInhibitorBecomesABlocker) {
  const auto blockers = diagnose({{.what = "idle",
                                   .who = "player",
                                   .why = "Playing \"x\"",
                                   .mode = "block",
                                   .uid = 1000,
                                   .pid = 412}})
                            .blockers;
  EXPECT_EQ(blockers,
            (std::vector<SleepBlocker>{
                {.pid = 412,
                 .processName = "player",
                 .duration = "",
                 .assertionType = "idle",
                 .assertionName = "Playing \"x\"",
                 .scope = SleepBlockerScope::systemSleep,
                 .rawLine = "pid 412(player): uid 1000 block idle named: \"Playing \"x\"\""}}));
}

TEST(LogindDiagnosticsTest, TheScopeFollowsWhatIsHeldUpAndHow) {
  const struct {
    const char* what;
    const char* mode;
    SleepBlockerScope scope;
  } cases[] = {{"sleep", "block", SleepBlockerScope::systemSleep},
               {"idle", "block", SleepBlockerScope::systemSleep},
               {"shutdown:sleep", "block", SleepBlockerScope::systemSleep},
               {"shutdown", "block", SleepBlockerScope::other},
               {"handle-lid-switch", "block", SleepBlockerScope::other},
               {"sleepy", "block", SleepBlockerScope::other},
               {"", "block", SleepBlockerScope::other},
               {"sleep", "delay", SleepBlockerScope::other}};

  for (const auto& each : cases) {
    const auto blockers = diagnose({{.what = each.what, .mode = each.mode}}).blockers;
    EXPECT_EQ(blockers.front().scope, each.scope) << each.what << " " << each.mode;
  }
}

TEST(LogindDiagnosticsTest, NodosOwnLockIsTheSleepLock) {
  EXPECT_EQ(diagnose({nodosLock}).sleepDisabled, true);
  EXPECT_EQ(sleepLockHolder({nodosLock}, someUser), 77);
}

TEST(LogindDiagnosticsTest, ALockIsNodosWhateverItSays) {
  for (const bool keepsDisplayOn : {false, true}) {
    Inhibitor lock = sleepLockInhibitor({.why = "words", .keepsDisplayOn = keepsDisplayOn});
    EXPECT_EQ(lock.why, "words");
    EXPECT_EQ(holdsUp(lock.what, "idle"), keepsDisplayOn) << "which is what keeps a display on";
    EXPECT_EQ(sleepLockHolder({lock}, someUser), 0);
  }
}

TEST(LogindDiagnosticsTest, TheLockOfAnOlderDaemonIsTheSleepLock) {
  const Inhibitor older{.what = "sleep:idle:handle-lid-switch",
                        .who = "nodo",
                        .why = "coding agents are working",
                        .mode = "block",
                        .uid = 0,
                        .pid = 78};
  EXPECT_EQ(diagnose({older}).sleepDisabled, true);
  EXPECT_EQ(sleepLockHolder({older}, someUser), 78);
}

TEST(LogindDiagnosticsTest, TheLockOfTheUsersOwnDaemonIsTheSleepLockToThatUser) {
  Inhibitor own = nodosLock;
  own.uid = someUser;
  EXPECT_EQ(diagnose({own}).sleepDisabled, true);
  EXPECT_EQ(sleepLockHolder({own}, someUser), 77);
  EXPECT_EQ(sleepLockHolder({own}, someUser + 1), std::nullopt);
}

TEST(LogindDiagnosticsTest, NothingElsePassesForNodosLock) {
  Inhibitor another = nodosLock;
  another.who = "other";
  Inhibitor ofAUser = nodosLock;
  ofAUser.uid = 1000;
  Inhibitor delaying = nodosLock;
  delaying.mode = "delay";
  Inhibitor lidLeftOut = nodosLock;
  lidLeftOut.what = "sleep:idle";
  EXPECT_EQ(diagnose({another, ofAUser, delaying, lidLeftOut}).sleepDisabled, false);
  EXPECT_EQ(sleepLockHolder({another, ofAUser, delaying, lidLeftOut}, someUser), std::nullopt);
}

}  // namespace
}  // namespace nodo
