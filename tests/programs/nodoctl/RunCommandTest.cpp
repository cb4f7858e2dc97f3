#include <NODOCore/base/Files.h>
#include <programs/nodoctl/commands/CommandProcess.h>
#include <testing/SignalsOfTheForeground.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <deque>

#include <gmock/gmock.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <tests/programs/nodoctl/ToolFixture.h>
#include <unistd.h>

namespace nodo::nodoctl {
namespace {

using test::FakeHelperRequest;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using Texts = std::vector<std::string>;

class RunCommandTest : public ToolFixture {
 protected:
  // Runs `script` under sh with the arguments before "--".
  Outcome runScript(const std::string& script, Texts options = {}) {
    Texts arguments{"run"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    const Texts command{"--", "sh", "-c", script};
    arguments.insert(arguments.end(), command.begin(), command.end());
    return run(arguments);
  }

  // What a script writes when it says `into "$FILE"`.
  std::string file(const std::string& name) const { return (folder / name).string(); }

  // The command waits for `release`, while events of the test happen one after another: each that
  // the tool waits for takes the time it was ready to wait.
  class ScriptedSignals : public SignalQueue {
   public:
    ScriptedSignals(RunCommandTest& test, const std::vector<int>& signals)
        : test_(test), real_(catchSignals(signals)) {}

    std::optional<CaughtSignal> next(Seconds limit, std::span<pollfd> others) override {
      if (test_.steps.empty()) {
        test_.release();
        return real_->next(Seconds(60), others);
      }
      test_.waits.push_back(limit.count());
      test_.advance(limit.count());
      const auto step = test_.steps.front();
      test_.steps.pop_front();
      step();
      return std::nullopt;
    }

   private:
    RunCommandTest& test_;
    std::unique_ptr<SignalQueue> real_;
  };

  Outcome runWithSteps(Texts options = {}) {
    makeSignals = [this](const std::vector<int>& signals) {
      return std::make_unique<ScriptedSignals>(*this, signals);
    };
    prepareGate();
    return runScript("read line < '" + file("gate") + "'", std::move(options));
  }

  // Closes it again, for another command.
  void prepareGate() {
    released_ = false;
    std::filesystem::remove(folder / "gate");
    EXPECT_EQ(::mkfifo(file("gate").c_str(), S_IRWXU), 0);
  }

  void release() {
    if (!released_) {
      released_ = true;
      const FileDescriptor gate(::open(file("gate").c_str(), O_WRONLY | O_CLOEXEC));
      EXPECT_EQ(::write(gate.get(), "\n", 1), 1);
    }
  }

  // The user's own state, which is what is taken and given back where there is no daemon.
  NODOState state() const { return StateStore{folder / ".nodo"}.load(); }

  // Of the timer, 0 when there is none.
  std::int64_t secondsLeft() const { return state().manualRemainingSeconds(now).value_or(0); }

  // What a command of the fixture's would ask the daemon for; a look at the status aside.
  Texts changes() const {
    Texts changes = helper->requests();
    changes.erase(std::remove(changes.begin(), changes.end(), "status"), changes.end());
    return changes;
  }

  std::deque<std::function<void()>> steps;
  std::vector<double> waits;
  const test::SignalsOfTheForeground signalsOfTheForeground;

 private:
  bool released_ = false;
};

TEST_F(RunCommandTest, TheExitStatusIsTheCommands) {
  startDaemon();
  for (const int status : {0, 1, 7, 126, 255}) {
    EXPECT_EQ(runScript("exit " + std::to_string(status)).exitStatus, status);
  }
}

TEST_F(RunCommandTest, ASignalThatEndsTheCommandIsAddedTo128) {
  startDaemon();
  EXPECT_EQ(runScript("kill -TERM $$").exitStatus, 128 + SIGTERM);
  EXPECT_EQ(runScript("kill -KILL $$").exitStatus, 128 + SIGKILL);
}

TEST_F(RunCommandTest, ACommandThatCannotBeRunGetsAShellsStatusAndNoTimer) {
  startDaemon();
  folder.write("notes", "text");
  environment["PATH"] = folder.path().string();

  const struct {
    std::string command;
    int status;
    std::string error;
  } cases[] = {{"no-such", 127, "cannot run \"no-such\": it is in no folder of PATH"},
               {"notes", 126, "cannot run \"notes\": Permission denied"},
               {"/no/such", 127, "cannot run \"/no/such\": No such file or directory"},
               {file("notes"), 126, "cannot run \"" + file("notes") + "\": Permission denied"},
               {"/", 126, "cannot run \"/\": Permission denied"},
               {"a\x1b[2J", 127, "cannot run \"a\\u{1b}[2J\": it is in no folder of PATH"}};

  for (const auto& each : cases) {
    const Outcome outcome = run({"run", "--", each.command});
    EXPECT_EQ(outcome.exitStatus, each.status) << each.command;
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.error, "nodoctl: " + each.error + "\n");
  }
  EXPECT_EQ(helper->requests(), Texts{});
}

TEST_F(RunCommandTest, AProgramThatTheSystemRefusesIsNoticedWhenItIsStarted) {
  startDaemon();
  folder.write("script", "#!/no/such/interpreter\n");
  std::filesystem::permissions(folder / "script", std::filesystem::perms::owner_all);
  const Outcome outcome = run({"run", "--", file("script")});
  EXPECT_EQ(outcome.exitStatus, 127);
  EXPECT_EQ(outcome.error,
            "nodoctl: cannot run \"" + file("script") + "\": No such file or directory\n");
}

TEST_F(RunCommandTest, TheCommandGetsItsWordsAsTheyAre) {
  startDaemon();
  const Outcome outcome =
      run({"run", "--minutes", "5", "--", "sh", "-c", "printf '%s|' \"$@\" > \"$0\"", file("words"),
           "--", "--json", "-x", "", "a b", "--minutes", "status"});
  EXPECT_EQ(outcome.exitStatus, 0) << outcome.error;
  EXPECT_EQ(folder.read("words"), "--|--json|-x||a b|--minutes|status|");
}

TEST_F(RunCommandTest, TheTimerIsExtendedInTheCommandsName) {
  startDaemon();
  runScript("true");
  run({"run", "--minutes", "90", "--", "/bin/sh", "-c", "true"});
  EXPECT_EQ(changes(), (Texts{"enableManualV2 20 extend-only \"sh\" nil \"run\"",
                              "enableManualV2 90 extend-only \"sh\" nil \"run\""}));
}

TEST_F(RunCommandTest, TheTimerIsExtendedAgainAfterHalfOfTheTime) {
  startDaemon();
  for (int wait = 0; wait < 21; ++wait) {
    steps.emplace_back([] {});
  }
  runWithSteps();
  EXPECT_EQ(changes().size(), 3U);
  EXPECT_THAT(waits, ::testing::Each(60));
}

TEST_F(RunCommandTest, AShortTimerIsExtendedInTimeAsWell) {
  startDaemon();
  steps = {[] {}, [] {}, [] {}};
  runWithSteps({"--minutes", "1"});
  EXPECT_EQ(changes().size(), 4U);
  EXPECT_EQ(waits, (std::vector<double>{30, 30, 30}));
}

TEST_F(RunCommandTest, AfterASleepTheTimerIsExtendedAtOnce) {
  startDaemon();
  steps = {[this] { advance(3600); }};
  runWithSteps();
  EXPECT_EQ(changes().size(), 2U);
}

TEST_F(RunCommandTest, WithoutADaemonItWarnsOnceAndAsksAgainEachMinute) {
  steps = {[] {}, [] {}, [this] { startDaemon(); }, [] {}, [] {}};
  const Outcome outcome = runWithSteps();
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_TRUE(outcome.saidLocal);
  EXPECT_EQ(outcome.error, "");
  EXPECT_EQ(changes().size(), 1U);  // and not again soon, once it answered
  EXPECT_TRUE(std::filesystem::exists(folder / ".nodo/state.json"));
}

TEST_F(RunCommandTest, WhenNoTimerCanBeSetTheCommandRunsAllTheSame) {
  folder.write(".nodo/state.json", "[");
  steps = {[] {}, [] {}};
  const Outcome outcome = runWithSteps();
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_TRUE(outcome.saidLocal);
  EXPECT_THAT(outcome.error,
              StartsWith("nodoctl: the timer cannot be extended, so the computer may sleep while "
                         "the command runs: the state file "));
  EXPECT_THAT(outcome.error, HasSubstr("\nnodoctl: the timer cannot be set back to what it was, so "
                                       "it may run on: the state file "));
  EXPECT_EQ(std::count(outcome.error.begin(), outcome.error.end(), '\n'), 2);
}

TEST_F(RunCommandTest, MinutesThatAreNotAllowedRunNothing) {
  for (const char* minutes : {"0", "-1", "721"}) {
    const Outcome outcome = runScript("echo > '" + file("ran") + "'", {"--minutes", minutes});
    EXPECT_EQ(outcome.exitStatus, 2) << minutes;
    EXPECT_THAT(outcome.error, HasSubstr(" minutes are too "));
    EXPECT_FALSE(std::filesystem::exists(folder / "ran"));
  }
}

TEST_F(RunCommandTest, AfterwardsATimerThatWasOffIsOffAgain) {
  steps = {[this] { EXPECT_EQ(secondsLeft(), 1140); }};
  const Outcome outcome = runWithSteps();
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_EQ(outcome.error, "");
  EXPECT_FALSE(state().manualUntil);
  EXPECT_EQ(state().lastStopReason, "user_stop");
}

TEST_F(RunCommandTest, ATimerThatIsToBeKeptStays) {
  runScript("true", {"--keep", "--minutes", "7"});
  EXPECT_EQ(secondsLeft(), 420);
  EXPECT_EQ(state().lastRequester->name, "sh");
}

TEST_F(RunCommandTest, AfterwardsAnEarlierTimerEndsWhenItWasToAndIsItsRequestersAgain) {
  run({"manual", "--minutes", "10", "--requester", "Codex", "--context", "nodo", "--event",
       "Stop"});
  advance(90);
  EXPECT_EQ(runScript("exit 3", {"--minutes", "60"}).exitStatus, 3);
  EXPECT_EQ(secondsLeft(), 540);  // 510 in whole minutes, and never shorter
  const NODOState restored = state();
  ASSERT_TRUE(restored.lastRequester);
  EXPECT_EQ(restored.lastRequester->displayText(), "Codex - nodo");
  EXPECT_EQ(restored.lastRequester->event, "Stop");
}

TEST_F(RunCommandTest, AnEarlierTimerWithoutRequesterHasNoneAgain) {
  run({"manual", "--minutes", "10"});
  runScript("true", {"--minutes", "60"});
  EXPECT_EQ(secondsLeft(), 600);
  EXPECT_FALSE(state().lastRequester);
}

TEST_F(RunCommandTest, AnEarlierTimerThatHasEndedMeanwhileIsOff) {
  run({"manual", "--minutes", "1"});
  steps = {[] {}, [] {}};
  runWithSteps();
  EXPECT_FALSE(state().manualUntil);
}

TEST_F(RunCommandTest, WhereWholeMinutesReachTheLaterEndThatOneStays) {
  run({"manual", "--minutes", "20"});
  advance(30);
  runScript("true");
  EXPECT_EQ(secondsLeft(), 1200);
  EXPECT_EQ(state().lastRequester->name, "sh");
}

TEST_F(RunCommandTest, FromATimerThatWasLongerNothingWasTaken) {
  run({"manual", "--minutes", "60"});
  steps = {[] {}};
  runWithSteps();
  EXPECT_EQ(secondsLeft(), 3540);
  EXPECT_EQ(state().lastRequester->name, "sh");
}

TEST_F(RunCommandTest, WhatSomebodyElseHasAskedForMeanwhileStays) {
  const Texts cases[] = {{"manual", "--minutes", "60"},
                         {"manual", "--minutes", "5", "--requester", "sh", "--event", "run"},
                         {"manual", "--minutes", "5", "--extend-only", "--requester", "Codex"}};
  for (const Texts& other : cases) {
    steps = {[&] { run(other); }};
    runWithSteps();
    EXPECT_GT(secondsLeft(), 0) << ::testing::PrintToString(other);
    run({"stop"});
  }
  steps = {[this] { run({"stop"}); }};
  runWithSteps();
  EXPECT_FALSE(state().manualUntil);
}

TEST_F(RunCommandTest, WhatSomebodyElseHasAskedForIsNotForgottenAfterTheNextExtension) {
  steps = {[this] { run({"manual", "--minutes", "60", "--requester", "Codex"}); }, [] {}, [] {}};
  runWithSteps();
  EXPECT_EQ(secondsLeft(), 58 * 60);
}

TEST_F(RunCommandTest, OfTwoAtOnceTheFirstThatEndsLeavesTheOthersTimer) {
  // What another "nodoctl run" of the same command asks for.
  steps = {[this] {
    run({"manual", "--minutes", "90", "--extend-only", "--requester", "sh", "--event", "run"});
  }};
  runWithSteps({"--minutes", "5"});
  EXPECT_EQ(secondsLeft(), 90 * 60);
}

TEST_F(RunCommandTest, OfTwoAtOnceTheLastThatEndsGivesBack) {
  runScript("true", {"--keep", "--minutes", "5"});  // as if it still ran
  advance(60);
  runScript("true", {"--minutes", "90"});
  EXPECT_EQ(secondsLeft(), 4 * 60);
  EXPECT_EQ(state().lastRequester->name, "sh");
}

TEST_F(RunCommandTest, ACommandThatCannotBeStartedGivesBackAsWell) {
  folder.write("script", "#!/no/such/interpreter\n");
  std::filesystem::permissions(folder / "script", std::filesystem::perms::owner_all);
  EXPECT_EQ(run({"run", "--", file("script")}).exitStatus, 127);
  EXPECT_FALSE(state().manualUntil);
}

TEST_F(RunCommandTest, ADaemonThatIsGoneInTheEndIsNamedWithTheWayOut) {
  startDaemon();
  steps = {[this] { helper->refusal = "nobody there"; }};
  const Outcome outcome = runWithSteps();
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_EQ(outcome.error,
            "nodoctl: the daemon cannot be asked (nobody there), so its timer may run on; 'nodoctl "
            "stop' ends it once the daemon answers again\n");
}

TEST_F(RunCommandTest, AProcessThatRunsAlreadyIsWaitedFor) {
  startDaemon();
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe(ends.data()), 0);
  const FileDescriptor input(ends[0]);
  FileDescriptor output(ends[1]);
  const pid_t process = ::fork();
  if (process == 0) {
    output.reset();
    char byte = 0;
    ::_exit(static_cast<int>(::read(input.get(), &byte, 1)));
  }
  helper->answer("enableManualV2", [&](const FakeHelperRequest& request) {
    output.reset();  // it ends once the timer is set, and not before
    request.reply(helper->status);
  });
  const Outcome outcome = run({"run", "--pid", std::to_string(process)});
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_EQ(outcome.error, "");
  EXPECT_EQ(changes(), (Texts{"enableManualV2 20 extend-only \"process " + std::to_string(process) +
                              "\" nil \"run\""}));
  EXPECT_EQ(::waitpid(process, nullptr, WNOHANG), process);
}

TEST_F(RunCommandTest, AProcessThatHasEndedIsWaitedForNoLonger) {
  const pid_t process = ::fork();
  if (process == 0) {
    ::_exit(0);
  }
  siginfo_t ended{};
  ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(process), &ended, WEXITED | WNOWAIT), 0);
  EXPECT_EQ(run({"run", "--pid", std::to_string(process)}).exitStatus, 0);
  EXPECT_FALSE(state().manualUntil);
  ASSERT_EQ(::waitpid(process, nullptr, 0), process);
  const Outcome outcome = run({"run", "--pid", std::to_string(process)});
  EXPECT_EQ(outcome.exitStatus, 1);
  EXPECT_EQ(outcome.error, "nodoctl: there is no process " + std::to_string(process) + "\n");
}

TEST_F(RunCommandTest, NobodyWaitsForItsOwnEnd) {
  const Outcome outcome = run({"run", "--pid", std::to_string(::getpid())});
  EXPECT_EQ(outcome.exitStatus, 1);
  EXPECT_THAT(outcome.error, HasSubstr("is this nodoctl itself"));
  EXPECT_FALSE(std::filesystem::exists(folder / ".nodo"));
}

TEST_F(RunCommandTest, AProcessIsNamedByItsNumberAndInsteadOfACommand) {
  for (const char* pid : {"make", "0", "-1", "1.5", "", "99999999999"}) {
    const Outcome outcome = run({"run", "--pid", pid});
    EXPECT_EQ(outcome.exitStatus, 2) << pid;
    EXPECT_THAT(outcome.error, HasSubstr("\"" + std::string(pid) + "\" is not the number of a"));
  }
  const Outcome both = run({"run", "--pid", "1", "--", "true"});
  EXPECT_EQ(both.exitStatus, 2);
  EXPECT_THAT(both.error, StartsWith("nodoctl: a COMMAND and --pid PID do not go together\n"));
}

TEST_F(RunCommandTest, WithoutACommandItIsAWrongUse) {
  for (const Texts& arguments :
       {Texts{"run"}, Texts{"run", "--"}, Texts{"run", "--minutes", "5"}}) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.exitStatus, 2);
    EXPECT_THAT(outcome.error, StartsWith("nodoctl: A COMMAND to run or --pid PID is required"));
  }
  EXPECT_EQ(run({"run", "--json", "--", "true"}).exitStatus, 2);
}

TEST_F(RunCommandTest, TheCommandStartsWithTheSignalsOfThisProcessesStarter) {
  startDaemon();

  struct sigaction ignored {};

  struct sigaction before {};

  ignored.sa_handler = SIG_IGN;
  ::sigaction(SIGUSR2, &ignored, &before);
  runScript("kill -USR2 $$; echo survived > '" + file("ignored") + "'; kill -USR1 $$; echo > '" +
            file("caught") + "'");
  ::sigaction(SIGUSR2, &before, nullptr);
  EXPECT_EQ(folder.read("ignored"), "survived\n");
  EXPECT_FALSE(std::filesystem::exists(folder / "caught"));
}

TEST_F(RunCommandTest, SignalsOfOtherProcessesArePassedOn) {
  startDaemon();
  const std::string self = std::to_string(::getpid());
  // The command itself does not count as another process, but one that it runs does.
  for (const char* name : {"INT", "TERM", "HUP", "QUIT", "USR1", "USR2", "WINCH"}) {
    const std::string signal(name);
    const Outcome outcome = runScript("trap 'exit 33' " + signal + "; sh -c 'kill -" + signal +
                                      " " + self + "' & while :; do wait; done");
    EXPECT_EQ(outcome.exitStatus, 33) << name;
  }
}

TEST_F(RunCommandTest, ASignalOfTheCommandItselfIsNotSentBack) {
  startDaemon();
  const std::string self = std::to_string(::getpid());
  // Signals are passed on in their order, so the second one proves that the first one was not.
  const Outcome outcome = runScript("trap 'exit 33' INT; trap 'exit 4' USR1; kill -INT " + self +
                                    "; sh -c 'kill -USR1 " + self + "' & while :; do wait; done");
  EXPECT_EQ(outcome.exitStatus, 4);
}

TEST_F(RunCommandTest, ACommandThatIsLetGoOfEnds) {
  ASSERT_EQ(::mkfifo(file("gate").c_str(), S_IRWXU), 0);
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe(ends.data()), 0);
  const FileDescriptor output(ends[0]);
  {
    FileDescriptor input(ends[1]);
    CommandProcess command({"sh", "-c", "read line < '" + file("gate") + "'"});
    EXPECT_FALSE(command.hasEnded());
    input.reset();
  }
  EXPECT_EQ(readToEnd(output, "the pipe"), "");  // the command held its other end
}

}  // namespace
}  // namespace nodo::nodoctl
