#include <NODOCore/base/JSONValue.h>
#include <programs/nodod/Program.h>
#include <testing/DiskFull.h>

#include <cerrno>
#include <memory>
#include <sstream>
#include <system_error>
#include <utility>

#include <sys/stat.h>
#include <tests/daemon/DaemonFixture.h>

namespace nodo::nodod {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using Behaviour = test::FakePowerManager::Behaviour;

/// A loop that the program owns, which does what the test's own loop does.
class LentLoop : public DaemonLoop {
 public:
  explicit LentLoop(FakeLoop& loop) : loop_(loop) {}

  void serve(NODOHelperXPCProtocol& service) override { loop_.serve(service); }

  void setTimer(std::optional<Seconds> fromNow) override { loop_.setTimer(fromNow); }

  void afterPass(bool lockHeld, const std::optional<SystemSnapshot>& seen) override {
    loop_.afterPass(lockHeld, seen);
  }

  void announceChange() override { loop_.announceChange(); }

  void run(const DaemonHandlers& handlers) override { loop_.run(handlers); }

 private:
  FakeLoop& loop_;
};

class ProgramTest : public DaemonFixture {
 protected:
  struct Outcome {
    int exitStatus = -1;
    std::string output;
    std::string error;
  };

  Outcome run(const std::vector<std::string>& arguments) {
    std::ostringstream output;
    std::ostringstream error;
    const int status = runDaemon(
        arguments,
        {.environment = {},
         .machine =
             [this](PowerChoice choice) {
               lookedBy = choice;
               return HostMachine{.processListing = machine, .snapshotProvider = machine};
             },
         .makeSleepLock =
             [this](PowerChoice choice) {
               askedFor = choice;
               SleepLock lock = makeLock();
               lock.isSimulated = isSimulated;
               return lock;
             },
         .makeLoop =
             [this](const std::optional<std::string>& bus, const DaemonLog& /*log*/) {
               askedBus = bus;
               ++loopsMade;
               return std::make_unique<LentLoop>(loop);
             },
         .stateFolder = [this](
                            const Environment& /*environment*/,
                            const std::optional<std::string>& /*bus*/) { return folder / "state"; },
         .settingsFile = folder / "nodod.toml",
         .now = [this] { return moment(); },
         .useLog =
             [this](const std::string& path) {
               askedLog = path;
               if (!logCanBeOpened) {
                 throw std::system_error(ENOENT, std::generic_category(), path);
               }
             },
         .output = output,
         .error = error});
    return {.exitStatus = status, .output = output.str(), .error = error.str()};
  }

  PowerChoice askedFor = PowerChoice::simulated;
  PowerChoice lookedBy = PowerChoice::simulated;
  std::optional<std::string> askedBus;
  std::optional<std::string> askedLog;
  bool logCanBeOpened = true;
  int loopsMade = 0;
  bool isSimulated = false;
};

TEST_F(ProgramTest, ServesUntilASignalEndsIt) {
  loop.onRun = [this] {
    std::optional<std::string> reply;
    loop.service->enableManual(20,
                               [&](std::optional<std::string> text) { reply = std::move(text); });
    EXPECT_THAT(reply.value_or(""), HasSubstr("\"ownsSleepDisable\":true"));
    loop.handlers.terminate();
  };
  const Outcome outcome = run({"--bus", "session", "--power", "logind"});
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(outcome.error,
            "nodod: sleep lock switched on (enable:manual_timer)\n"
            "nodod: sleep lock switched off (release:daemon_stopping)\n");
  EXPECT_EQ(askedBus, "session");
  EXPECT_EQ(askedFor, PowerChoice::logind);
  EXPECT_EQ(lookedBy, PowerChoice::logind);
}

TEST_F(ProgramTest, OptionsWinOverTheFileAndItOverTheDefaults) {
  folder.write("nodod.toml", "max-minutes = 90\nminimum-battery = 5\n");
  const Outcome outcome = run({"--show-settings", "--minimum-battery", "30"});
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_EQ(outcome.error, "");
  EXPECT_THAT(outcome.output, HasSubstr("minimum-battery = 30\nmax-minutes = 90\n"));
  EXPECT_THAT(outcome.output, HasSubstr("\nno-route-grace = 300\n"));
  EXPECT_EQ(loopsMade, 0);
  folder.write("shown.toml", outcome.output);
  EXPECT_EQ(run({"--show-settings", "--config", folder / "shown.toml"}).output, outcome.output)
      << "what is shown can be a file";
}

TEST_F(ProgramTest, WhatAFileSpoilsIsToldAndTheRestOfItHolds) {
  folder.write("nodod.toml", "max-minuts = 90\nminimum-battery = 5\n");
  const Outcome shown = run({"--show-settings"});
  EXPECT_EQ(shown.exitStatus, 1);
  EXPECT_THAT(shown.output, HasSubstr("minimum-battery = 5\n"));
  EXPECT_THAT(shown.error, HasSubstr("nodod.toml, line 1: there is no setting \"max-minuts\"\n"));
  const Outcome served = run({});
  EXPECT_EQ(served.exitStatus, 0);
  EXPECT_THAT(served.error, HasSubstr("there is no setting \"max-minuts\"\n"));
  EXPECT_THAT(run({"--show-settings", "--config", folder / "none.toml"}).error,
              HasSubstr("none.toml: there is no such file"));
}

TEST_F(ProgramTest, AHangupReadsTheFileAnewAndTheOptionsStillWin) {
  loop.onRun = [this] {
    const auto ask = [this](std::int64_t minutes) {
      std::string reply;
      loop.service->enableManual(
          minutes, [&](const std::optional<std::string>& text) { reply = text.value_or(""); });
      return reply;
    };
    EXPECT_THAT(ask(91), Not(HasSubstr("\"error\"")));
    folder.write("nodod.toml", "max-minutes = 90\nminimum-battery = 100\n");
    loop.handlers.hungUp();
    EXPECT_THAT(ask(91), HasSubstr("\"error\""));
    EXPECT_EQ(loop.service->settings()->policy.maxManualDurationMinutes, 90);
    EXPECT_EQ(loop.service->settings()->policy.minimumBatteryPercent, 3);
    folder.write("nodod.toml", "= broken");
    loop.handlers.hungUp();
    EXPECT_EQ(loop.service->settings()->policy.maxManualDurationMinutes, 720);
    EXPECT_EQ(loop.service->settings()->problems.size(), 1U);
    loop.handlers.terminate();
  };
  const Outcome outcome = run({"--minimum-battery", "3"});
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_THAT(outcome.error,
              HasSubstr("nodod: settings: " + (folder / "nodod.toml").string() + ", line 1: "));
}

TEST_F(ProgramTest, TheLogGoesWhereTheOptionSays) {
  EXPECT_EQ(run({"--once"}).exitStatus, 0);
  EXPECT_EQ(askedLog, std::nullopt);
  EXPECT_EQ(run({"--once", "--log", "/some/log"}).error, "");
  EXPECT_EQ(askedLog, "/some/log");
}

TEST_F(ProgramTest, ALogThatCannotBeOpenedKeepsNoDaemonFromItsWork) {
  logCanBeOpened = false;
  const Outcome outcome = run({"--log", "/no/such/log"});
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_EQ(loopsMade, 1);
  EXPECT_EQ(outcome.error, "nodod: /no/such/log: No such file or directory\n");
}

TEST_F(ProgramTest, ForeignTextIsEscapedInTheLog) {
  loop.onRun = [this] {
    loop.service->enableManualV2(20, true, "evil\x1b[2J", std::nullopt, std::nullopt,
                                 [](const std::optional<std::string>&) {});
  };
  EXPECT_THAT(run({}).error, HasSubstr("evil\\u{1b}[2J"));
}

TEST_F(ProgramTest, TheOptionsLimitsAreKept) {
  std::string reply;
  loop.onRun = [&] {
    loop.service->enableManual(
        6, [&](const std::optional<std::string>& text) { reply = text.value_or(""); });
  };
  run({"--max-minutes", "5"});
  EXPECT_THAT(reply, HasSubstr("minutes must be <= 5"));
}

TEST_F(ProgramTest, TheReleaseWaitsAsLongAsTheOptionSays) {
  putTimer(20, false);
  std::optional<Seconds> nextPass;
  loop.onRun = [&] { nextPass = loop.timer; };
  run({"--release-grace", "30"});
  EXPECT_EQ(nextPass, Seconds(50));
}

TEST_F(ProgramTest, AStateFolderOfItsOwnIsUsed) {
  loop.onRun = [this] { loop.service->enableManual(5, [](const std::optional<std::string>&) {}); };
  run({"--state-dir", (folder / "else/where").string()});
  EXPECT_TRUE(std::filesystem::exists(folder / "else/where/state.json"));
  EXPECT_FALSE(std::filesystem::exists(store().stateURL()));
}

TEST_F(ProgramTest, WithoutMeansThePersonIsToldThatTheLockIsOnlySimulated) {
  isSimulated = true;
  EXPECT_THAT(run({}).error, HasSubstr("nodod: this computer offers no way"));
  EXPECT_EQ(run({"--power", "simulated"}).error, "");
  isSimulated = false;
  EXPECT_EQ(run({}).error, "");
}

TEST_F(ProgramTest, AWrongUseExitsWith2AndAHint) {
  const Outcome outcome = run({"--minimum-battery", "many"});
  EXPECT_EQ(outcome.exitStatus, 2);
  EXPECT_EQ(outcome.output, "");
  EXPECT_THAT(outcome.error, HasSubstr("nodod: --minimum-battery"));
  EXPECT_THAT(outcome.error, HasSubstr("Try 'nodod --help' for more information.\n"));
  EXPECT_EQ(loopsMade, 0);
}

TEST_F(ProgramTest, HelpGoesToStandardOutput) {
  const Outcome outcome = run({"--help"});
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_THAT(outcome.output, HasSubstr("--no-route-grace"));
  EXPECT_EQ(outcome.error, "");
}

TEST_F(ProgramTest, ATakenNameExitsWith1AndItsReason) {
  loop.isNameTaken = true;
  const Outcome outcome = run({});
  EXPECT_EQ(outcome.exitStatus, 1);
  EXPECT_EQ(outcome.error, "nodod: the name is taken\n");
}

TEST_F(ProgramTest, ASecondDaemonOnTheSameStateExitsWith1AndTouchesNothing) {
  const StateFolderLock first(store().directory);
  putTimer(600, false);
  const Outcome outcome = run({});
  EXPECT_EQ(outcome.exitStatus, 1);
  EXPECT_EQ(outcome.error,
            "nodod: another nodod works on the state in " + store().directory.string() + "\n");
  EXPECT_THAT(power.operations, IsEmpty());
  EXPECT_EQ(loopsMade, 0);
  EXPECT_EQ(run({"--once"}).exitStatus, 1);
}

TEST_F(ProgramTest, TheStateFolderIsFreeAgainAfterwards) {
  EXPECT_EQ(run({}).exitStatus, 0);
  EXPECT_EQ(run({}).exitStatus, 0);
  EXPECT_EQ(loopsMade, 2);
}

TEST_F(ProgramTest, AStateThatCannotBeReadDoesNotEndTheDaemon) {
  breakState();
  std::string reply;
  loop.onRun = [&] {
    loop.service->status(
        [&](const std::optional<std::string>& text) { reply = text.value_or(""); });
  };
  const Outcome outcome = run({});
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_THAT(reply, HasSubstr("\"error\""));
  EXPECT_THAT(outcome.error, HasSubstr("nodod: pass failed (start): "));
  EXPECT_EQ(folder.read("state/state.json"), "{");
}

// ---- one pass

TEST_F(ProgramTest, OncePrintsTheReportAndGivesTheLockBack) {
  putTimer(600, false);
  const Outcome outcome = run({"--once"});
  EXPECT_EQ(outcome.exitStatus, 0);
  const JSONValue report = JSONValue::parse(outcome.output);
  EXPECT_THAT(outcome.output, HasSubstr("\"disable_sleep\""));
  EXPECT_TRUE(report.object());
  EXPECT_EQ(loopsMade, 0);
  EXPECT_FALSE(power.isSleepDisabled);
  EXPECT_FALSE(stored().ownsSleepDisable);
  EXPECT_TRUE(stored().manualUntil);
}

TEST_F(ProgramTest, OnceLeavesNoLockThatNobodyLooksAfter) {
  lockDiesWithProcess = false;
  putTimer(600, false);
  EXPECT_EQ(run({"--once"}).exitStatus, 0);
  EXPECT_FALSE(power.isSleepDisabled);
  EXPECT_FALSE(stored().ownsSleepDisable);
  EXPECT_FALSE(std::filesystem::exists(mark()));
}

TEST_F(ProgramTest, OnceThatCannotGiveTheLockBackExitsWith1) {
  lockDiesWithProcess = false;
  putTimer(600, false);
  power.beforeOperation = [this](PowerOperationAction action) {
    power.behaviour =
        action == PowerOperationAction::enableSleep ? Behaviour::fails : Behaviour::works;
  };
  const Outcome outcome = run({"--once"});
  EXPECT_EQ(outcome.exitStatus, 1);
  EXPECT_THAT(outcome.error, HasSubstr("nodod: the sleep lock may still be on\n"));
}

TEST_F(ProgramTest, ASignalWhileTheReleaseIsRefusedExitsWith1) {
  lockDiesWithProcess = false;
  putTimer(600, false);
  loop.onRun = [this] {
    power.behaviour = Behaviour::fails;
    loop.handlers.terminate();
  };
  const Outcome outcome = run({});
  EXPECT_EQ(outcome.exitStatus, 1);
  EXPECT_THAT(outcome.error, HasSubstr("nodod: the sleep lock may still be on\n"));
}

TEST_F(ProgramTest, ALockLeftBehindGoesBeforeAnythingThatCanFail) {
  lockDiesWithProcess = false;
  power.isSleepDisabled = true;
  folder.write("lock-mark", "");
  folder.write("state", "no folder");
  EXPECT_EQ(run({}).exitStatus, 1);
  EXPECT_FALSE(power.isSleepDisabled);
  EXPECT_FALSE(std::filesystem::exists(mark()));
}

TEST_F(ProgramTest, ALockLeftBehindWhoseTimerRunsIsKeptUnlessNobodyCanLookAfterIt) {
  lockDiesWithProcess = false;
  power.isSleepDisabled = true;
  folder.write("lock-mark", "");
  putTimer(600, true);
  loop.onRun = [this] { EXPECT_TRUE(power.isSleepDisabled); };
  EXPECT_EQ(run({}).exitStatus, 0);
  EXPECT_THAT(power.operations, IsEmpty());
  loop.isNameTaken = true;
  EXPECT_EQ(run({}).exitStatus, 1);
  EXPECT_FALSE(power.isSleepDisabled);
}

TEST_F(ProgramTest, OnceThatFailsExitsWith1AndPrintsNothing) {
  breakState();
  const Outcome outcome = run({"--once"});
  EXPECT_EQ(outcome.exitStatus, 1);
  EXPECT_EQ(outcome.output, "");
  EXPECT_THAT(outcome.error, HasSubstr("nodod: "));
}

TEST_F(ProgramTest, OnceThatFailsLeavesNoLockThatNobodyKnowsOf) {
  lockDiesWithProcess = false;
  putTimer(600, false);
  std::optional<test::DiskFull> full;
  power.beforeOperation = [&](PowerOperationAction action) {
    if (action == PowerOperationAction::disableSleep) {
      full.emplace();
    }
  };
  EXPECT_EQ(run({"--once"}).exitStatus, 1);
  EXPECT_THAT(power.operations,
              ElementsAre(PowerOperationAction::disableSleep, PowerOperationAction::enableSleep));
  EXPECT_FALSE(power.isSleepDisabled);
}

// ---- the folder's lock

TEST_F(ProgramTest, TheStateFolderIsMadeForItsOwnerOnly) {
  const mode_t before = ::umask(0);
  { const StateFolderLock lock(folder / "new/state"); }
  ::umask(before);

  struct stat status {};

  ASSERT_EQ(::stat((folder / "new/state").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0700U);
  ASSERT_EQ(::stat((folder / "new/state/nodod.lock").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600U);
}

TEST_F(ProgramTest, APlantedLinkInThePlaceOfTheLockFileIsNotFollowed) {
  folder.write("victim", "precious");
  std::filesystem::create_directories(folder / "state");
  std::filesystem::create_symlink(folder / "victim", folder / "state/nodod.lock");
  EXPECT_THROW(StateFolderLock(folder / "state"), std::system_error);
  EXPECT_EQ(folder.read("victim"), "precious");
}

TEST_F(ProgramTest, AStateFolderThatCannotBeMadeIsNamed) {
  folder.write("file", "");
  try {
    const StateFolderLock lock(folder / "file/state");
    FAIL() << "no error";
  } catch (const std::system_error& error) {
    EXPECT_THAT(error.what(), HasSubstr((folder / "file/state").string()));
  }
}

}  // namespace
}  // namespace nodo::nodod
