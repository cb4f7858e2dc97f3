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
#include <tests/programs/nodoctl/ToolFixture.h>

namespace nodo::nodoctl {
namespace {

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

    std::optional<CaughtSignal> next(Seconds limit) override {
      if (test_.steps.empty()) {
        test_.release();
        return real_->next(Seconds(60));
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
    EXPECT_EQ(::mkfifo(file("gate").c_str(), S_IRWXU), 0);
    return runScript("read line < '" + file("gate") + "'", std::move(options));
  }

  void release() {
    if (!released_) {
      released_ = true;
      const FileDescriptor gate(::open(file("gate").c_str(), O_WRONLY | O_CLOEXEC));
      EXPECT_EQ(::write(gate.get(), "\n", 1), 1);
    }
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
  EXPECT_EQ(helper->requests(), (Texts{"enableManualV2 20 extend-only \"sh\" nil \"run\"",
                                       "enableManualV2 90 extend-only \"sh\" nil \"run\""}));
}

TEST_F(RunCommandTest, TheTimerIsExtendedAgainAfterHalfOfTheTime) {
  startDaemon();
  for (int wait = 0; wait < 21; ++wait) {
    steps.emplace_back([] {});
  }
  runWithSteps();
  EXPECT_EQ(helper->requests().size(), 3U);
  EXPECT_THAT(waits, ::testing::Each(60));
}

TEST_F(RunCommandTest, AShortTimerIsExtendedInTimeAsWell) {
  startDaemon();
  steps = {[] {}, [] {}, [] {}};
  runWithSteps({"--minutes", "1"});
  EXPECT_EQ(helper->requests().size(), 4U);
  EXPECT_EQ(waits, (std::vector<double>{30, 30, 30}));
}

TEST_F(RunCommandTest, AfterASleepTheTimerIsExtendedAtOnce) {
  startDaemon();
  steps = {[this] { advance(3600); }};
  runWithSteps();
  EXPECT_EQ(helper->requests().size(), 2U);
}

TEST_F(RunCommandTest, WithoutADaemonItWarnsOnceAndAsksAgainEachMinute) {
  steps = {[] {}, [] {}, [this] { startDaemon(); }, [] {}, [] {}};
  const Outcome outcome = runWithSteps();
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_TRUE(outcome.saidLocal);
  EXPECT_EQ(outcome.error, "");
  EXPECT_EQ(helper->requests().size(), 1U);  // and not again soon, once it answered
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
  EXPECT_EQ(std::count(outcome.error.begin(), outcome.error.end(), '\n'), 1);
}

TEST_F(RunCommandTest, MinutesThatAreNotAllowedRunNothing) {
  for (const char* minutes : {"0", "-1", "721"}) {
    const Outcome outcome = runScript("echo > '" + file("ran") + "'", {"--minutes", minutes});
    EXPECT_EQ(outcome.exitStatus, 2) << minutes;
    EXPECT_THAT(outcome.error, HasSubstr(" minutes are too "));
    EXPECT_FALSE(std::filesystem::exists(folder / "ran"));
  }
}

TEST_F(RunCommandTest, WithoutACommandItIsAWrongUse) {
  for (const Texts& arguments :
       {Texts{"run"}, Texts{"run", "--"}, Texts{"run", "--minutes", "5"}}) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.exitStatus, 2);
    EXPECT_THAT(outcome.error, StartsWith("nodoctl: command is required"));
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
