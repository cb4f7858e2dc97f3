#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/presentation/MenuReport.h>

#include <algorithm>
#include <csignal>
#include <deque>

#include <gmock/gmock.h>

#include <tests/programs/nodoctl/FakeTerminal.h>
#include <tests/programs/nodoctl/ToolFixture.h>

namespace nodo::nodoctl {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;
using Texts = std::vector<std::string>;
using Event = std::function<std::optional<CaughtSignal>()>;

constexpr char beginScreen[] = "\x1b[?1049h\x1b[?25l\x1b[?7l";
constexpr char endScreen[] = "\x1b[?7h\x1b[?25h\x1b[?1049l";

// What happens while "watch" waits, one event each time; after the last one an interrupt.
class WatchTest : public ToolFixture {
 protected:
  class ScriptedSignals : public SignalQueue {
   public:
    explicit ScriptedSignals(WatchTest& test) : test_(test) {}

    std::optional<CaughtSignal> next(Seconds limit, std::span<pollfd> others) override {
      test_.waits.push_back(limit.count());
      others[0].revents = test_.came;
      if (test_.events.empty()) {
        return CaughtSignal{.number = SIGINT, .sender = std::nullopt};
      }
      const Event event = test_.events.front();
      test_.events.pop_front();
      const auto signal = event();
      others[1].revents = others[1].fd >= 0 && test_.isAnnounced ? POLLIN : 0;
      return signal;
    }

   private:
    WatchTest& test_;
  };

  class ScriptedNews : public ChangeNews {
   public:
    explicit ScriptedNews(WatchTest& test) : test_(test) {}

    int descriptor() const override { return 1000; }  // nobody waits for it

    bool take() override {
      if (test_.isBusGone) {
        throw std::runtime_error("the bus is gone");
      }
      return std::exchange(test_.isAnnounced, false);
    }

   private:
    WatchTest& test_;
  };

  WatchTest() {
    environment["TERM"] = "xterm";
    environment["LANG"] = "C.UTF-8";
    startDaemon();
    makeSignals = [this](const std::vector<int>&) {
      return std::make_unique<ScriptedSignals>(*this);
    };
    listenForChanges = [this]() -> std::unique_ptr<ChangeNews> {
      return isBusGone ? nullptr : std::make_unique<ScriptedNews>(*this);
    };
  }

  void useTerminal() { terminal = screen; }

  // `change` happens half a second later and is announced.
  void then(const std::function<void()>& change) {
    after(0.5, [this, change] {
      change();
      isAnnounced = true;
    });
  }

  // `change` happens after so many seconds, and nobody tells.
  void after(
      double seconds, const std::function<void()>& change = [] {}) {
    events.emplace_back([this, seconds, change]() -> std::optional<CaughtSignal> {
      advance(seconds);
      helper->status.generatedAt = now;
      change();
      return std::nullopt;
    });
  }

  void then(int signal) {
    events.emplace_back(
        [signal] { return CaughtSignal{.number = signal, .sender = std::nullopt}; });
  }

  void startTimer(double seconds) {
    helper->status.decision.shouldPreventSleep = true;
    helper->status.state.ownsSleepDisable = true;
    diagnostics.report.sleepDisabled = true;
    helper->status.state.manualUntil = now + Seconds(seconds);
    helper->status.manualRemainingSeconds = static_cast<std::int64_t>(seconds);
  }

  static std::size_t lines(const std::string& text) {
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
  }

  std::shared_ptr<FakeTerminal> screen = std::make_shared<FakeTerminal>();
  std::deque<Event> events;
  std::vector<double> waits;
  short came = 0;            // from the terminal, each time
  bool isAnnounced = false;  // that something has changed
  bool isBusGone = false;    // so that nothing can be announced
};

TEST_F(WatchTest, InAPipeThereIsALineForEachChange) {
  then([] {});
  then([this] { startTimer(1200); });
  then([] {});
  then([this] { helper->status.state.manualUntil.reset(); });
  const Outcome outcome = run({"watch"});
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_EQ(outcome.error, "");
  EXPECT_EQ(lines(outcome.output), 3U) << outcome.output;
  EXPECT_THAT(outcome.output, StartsWith("2026-01-31 08:15:00  ▲ nodo: Not kept awake: "));
  EXPECT_THAT(outcome.output,
              HasSubstr("\n2026-01-31 08:15:01  ● nodo: Kept awake until 08:35 (20 min left).  "));
}

TEST_F(WatchTest, ThePassingOfTimeIsNoChange) {
  startTimer(59);
  for (int second = 0; second < 10; ++second) {
    then([this] { --*helper->status.manualRemainingSeconds; });
  }
  EXPECT_EQ(lines(run({"watch"}).output), 1U);
}

TEST_F(WatchTest, AnotherRequestOfTheSameRequesterIsAChange) {
  const auto request = [this] {
    helper->status.state.lastRequester = ActivationRequester("Codex", {}, {}, now);
  };
  request();
  then([&] {
    advance(1);
    request();
  });
  EXPECT_EQ(lines(run({"watch"}).output), 2U);
}

TEST_F(WatchTest, WithJSONEachLineIsADocument) {
  then([this] { startTimer(1230); });
  useTerminal();
  const Outcome outcome = run({"watch", "--json"});
  EXPECT_EQ(lines(outcome.output), 2U);
  const auto first = decodeJSON<MenuReport>(outcome.output.substr(0, outcome.output.find('\n')));
  EXPECT_EQ(first.statusSource, DoctorStatusSource::helper);
  EXPECT_EQ(first.countdown, std::nullopt);
  const auto second = decodeJSON<MenuReport>(outcome.output.substr(outcome.output.find('\n')));
  EXPECT_EQ(second.countdown, "20m");
  EXPECT_TRUE(screen->writes.empty());
}

TEST_F(WatchTest, ADaemonThatGoesIsToldOnceAndSoIsItsReturn) {
  then([this] { helper->refusal = "gone"; });
  then([] {});
  then([this] { helper->refusal.reset(); });
  const Outcome outcome = run({"watch"});
  EXPECT_EQ(lines(outcome.output), 3U);
  EXPECT_EQ(outcome.error, "nodoctl: helper unavailable (gone); using the local state\n");
}

TEST_F(WatchTest, OnATerminalFramesAreDrawnOverEachOther) {
  useTerminal();
  then([] {});
  then([this] { startTimer(1200); });
  const Outcome outcome = run({"watch"});
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_EQ(outcome.output, "");
  ASSERT_EQ(screen->writes.size(), 4U);
  EXPECT_EQ(screen->writes[0], beginScreen);
  EXPECT_THAT(
      screen->writes[1],
      StartsWith("\x1b[H\x1b[33m▲ nodo: Not kept awake: no timer runs. No agent is set up yet: "
                 "nodoctl hooks\x1b[0m\x1b[K\r\n\x1b[33minstall\x1b[0m\x1b[K\r\n"));
  EXPECT_THAT(screen->writes[1], EndsWith("\x1b[K\x1b[J"));
  EXPECT_THAT(screen->writes[2], HasSubstr("● nodo: Kept awake until 08:35 (20 min left)."));
  EXPECT_THAT(screen->writes[2], Not(HasSubstr("\x1b[2J")));
  EXPECT_EQ(screen->writes[3], endScreen);
  EXPECT_EQ(screen->echoes, (std::vector<bool>{false, true}));
}

TEST_F(WatchTest, AFrameFitsTheTerminalWhateverItsSize) {
  useTerminal();
  environment["NO_COLOR"] = "1";
  screen->dimensions = {.columns = 40, .rows = 24};
  then([this] { screen->dimensions = {.columns = 12, .rows = 3}; });
  run({"watch"});
  ASSERT_EQ(screen->writes.size(), 4U);
  EXPECT_EQ(screen->writes[1],
            "\x1b[H▲ nodo: Not kept awake: no timer runs.\x1b[K\r\n"
            "No agent is set up yet: nodoctl hooks\x1b[K\r\n"
            "install\x1b[K\r\n"
            "Triggers 12h  ············  0 requests,\x1b[K\r\n"
            "a bar an hour\x1b[K\r\n"
            "Setup: install hooks: nodoctl hooks\x1b[K\r\n"
            "install\x1b[K\r\n"
            "q or Ctrl-C ends.\x1b[K\x1b[J");
  EXPECT_EQ(screen->writes[2],
            "\x1b[H▲ nodo: Not\x1b[K\r\nkept awake:\x1b[K\r\nno timer\x1b[K\x1b[J");
}

TEST_F(WatchTest, AKeyEndsItAndOthersDoNot) {
  useTerminal();
  came = POLLIN;
  screen->keys = "x";
  then([] {});
  then([this] { screen->keys = "q"; });
  const Outcome outcome = run({"watch"});
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_EQ(waits.size(), 2U);
  EXPECT_EQ(screen->writes.back(), endScreen);
}

TEST_F(WatchTest, ItEndsWithItsReader) {
  useTerminal();
  came = POLLERR;
  then([] {});
  then([] {});
  EXPECT_EQ(run({"watch", "--json"}).exitStatus, 0);
  EXPECT_EQ(waits.size(), 1U);
}

TEST_F(WatchTest, AWindowThatChangedIsDrawnAnew) {
  useTerminal();
  then(SIGWINCH);
  then(SIGCONT);
  run({"watch"});
  ASSERT_EQ(screen->writes.size(), 4U);
  EXPECT_EQ(screen->writes[1], screen->writes[2]);
}

TEST_F(WatchTest, ATerminalThatCannotMoveItsCursorGetsLines) {
  useTerminal();
  environment["TERM"] = "dumb";
  const Outcome outcome = run({"watch"});
  EXPECT_EQ(lines(outcome.output), 1U);
  EXPECT_TRUE(screen->writes.empty());
}

TEST_F(WatchTest, WhatFailsIsShownBelow) {
  useTerminal();
  helper->refusal = "a\x1b[2Jb";
  run({"watch"});
  EXPECT_THAT(screen->writes[1],
              HasSubstr("helper unavailable (a\\u{1b}[2Jb); using the local state"));
}

TEST_F(WatchTest, WhileNothingChangesNothingIsAskedAndTheTimeLeftIsRedrawnByTheMinute) {
  useTerminal();
  startTimer(150);
  after(30);
  after(60);
  after(60);
  run({"watch"});
  EXPECT_EQ(helper->requests().size(), 1U);
  EXPECT_EQ(waits, (std::vector<double>{30, 60, 60, 60}));
  ASSERT_EQ(screen->writes.size(), 6U);
  EXPECT_THAT(screen->writes[1], HasSubstr("Kept awake until 08:17 (3 min left)."));
  EXPECT_THAT(screen->writes[2], HasSubstr("Kept awake until 08:17 (2 min left)."));
  EXPECT_THAT(screen->writes[3], HasSubstr("Kept awake until 08:17 (1 min left)."));
  EXPECT_THAT(screen->writes[4], Not(HasSubstr("left")));
}

TEST_F(WatchTest, ALockThatWentIsSeenWithoutTheDaemon) {
  startTimer(1200);
  after(60, [this] { diagnostics.report.sleepDisabled = false; });
  const Outcome outcome = run({"watch"});
  EXPECT_EQ(helper->requests().size(), 1U);
  EXPECT_EQ(lines(outcome.output), 2U);
  EXPECT_THAT(outcome.output, HasSubstr("\n2026-01-31 08:16:00  ▲ nodo: NOT kept awake by nodo, "));
}

TEST_F(WatchTest, WhatIsAnnouncedIsAskedForOnce) {
  then([] {});
  then([] {});
  after(60);
  run({"watch"});
  EXPECT_EQ(helper->requests().size(), 3U);
}

TEST_F(WatchTest, WithoutAnnouncementsItAsksEveryFiveSecondsOrAsOftenAsItIsTold) {
  isBusGone = true;
  after(5);
  after(2);
  run({"watch"});
  EXPECT_EQ(helper->requests().size(), 2U);
  EXPECT_EQ(waits, (std::vector<double>{5, 5, 3}));
  run({"watch", "--interval", "0.5"});
  EXPECT_EQ(waits.back(), 0.5);
}

TEST_F(WatchTest, ADaemonThatDoesNotAnswerIsAskedAgainThoughItWouldTell) {
  helper->refusal = "gone";
  after(5, [this] { helper->refusal.reset(); });
  after(60);
  const Outcome outcome = run({"watch"});
  EXPECT_EQ(waits, (std::vector<double>{5, 60, 60}));
  EXPECT_EQ(lines(outcome.output), 2U);
}

TEST_F(WatchTest, ABusThatGoesAndComesBackIsListenedToAgain) {
  then([this] { isBusGone = true; });
  after(5, [this] { isBusGone = false; });
  then([this] { startTimer(1200); });
  const Outcome outcome = run({"watch"});
  EXPECT_EQ(waits, (std::vector<double>{60, 5, 60, 60}));
  EXPECT_EQ(lines(outcome.output), 2U);
}

TEST_F(WatchTest, MenuShowsTheSameOnce) {
  startTimer(125);
  helper->status.state.lastRequester = ActivationRequester("Codex", "p", {}, now);
  EXPECT_EQ(run({"menu"}).output,
            "● nodo: Kept awake until 08:17 (3 min left).\n"
            "Last request: Codex - p\n"
            "Triggers 12h  ············  0 requests, a bar an hour\n"
            "Setup: install hooks: nodoctl hooks install\n");
  EXPECT_EQ(*runJSON({"menu", "--json"}).member("headline")->member("kind")->text(), "keptAwake");
  const auto report =
      decodeJSON<MenuReport>(jsonText(runJSON({"menu", "--json"}), JSONLayout::compact));
  EXPECT_EQ(report.iconState, MenuBarIconState::manualActive);
  EXPECT_EQ(report.countdown, "2m");
  useTerminal();
  EXPECT_THAT(run({"menu"}).output, StartsWith("\x1b[32m●"));
}

TEST_F(WatchTest, MenuWorksWithoutADaemon) {
  helper->refusal = "nobody there";
  const Outcome outcome = run({"menu", "--json"});
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_TRUE(outcome.saidLocal);
  EXPECT_EQ(*JSONValue::parse(outcome.output).member("setupLine")->text(), "Setup: install helper");
}

TEST_F(WatchTest, AnIntervalThatMakesNoSenseIsAWrongUse) {
  EXPECT_EQ(run({"watch", "--interval", "0"}).exitStatus, 2);
  EXPECT_EQ(run({"watch", "--interval", "often"}).exitStatus, 2);
}

}  // namespace
}  // namespace nodo::nodoctl
