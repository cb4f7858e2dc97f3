#include <NODOCore/base/Errors.h>

#include <cstdint>
#include <exception>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include <tests/helper/HelperClientFixture.h>

namespace nodo {
namespace {

constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t smallest = std::numeric_limits<std::int64_t>::min();

/// Asking for the manual timer, against daemons of both generations.
class NODOHelperXPCClientFallbackTest : public HelperClientFixture {
 protected:
  const ActivationRequester claude{"Claude Code", "project", "Stop", noon};
  const std::string secondGeneration =
      R"(enableManualV2 20 extend-only "Claude Code" "project" "Stop")";

  void letTimerEndIn(double seconds) { helper->status.state.manualUntil = noon + Seconds(seconds); }

  StatusReport extend(std::int64_t minutes = 20) const {
    return client.enableManual(minutes, true, claude, noon);
  }
};

TEST_F(NODOHelperXPCClientFallbackTest, APlainTimerIsOneRequestOfTheFirstGeneration) {
  EXPECT_EQ(client.enableManual(45, false, std::nullopt, noon), helper->status);
  EXPECT_EQ(helper->requests(), Texts{"enableManual 45"});
}

TEST_F(NODOHelperXPCClientFallbackTest, APlainTimerThatFailsIsNotTriedAgain) {
  helper->answer("enableManual", [](const auto& request) { request.refuse("no"); });
  EXPECT_EQ(outcomeOf([&] { client.enableManual(45, false, std::nullopt, noon); }),
            "Helper unavailable: no");
  EXPECT_EQ(helper->requests(), Texts{"enableManual 45"});
}

TEST_F(NODOHelperXPCClientFallbackTest, TheSecondGenerationCarriesWhatIsKnownOfTheRequester) {
  client.enableManual(20, true, claude, noon);
  client.enableManual(20, false, ActivationRequester("pi", std::nullopt, "event", noon), noon);
  client.enableManual(20, false, ActivationRequester("pi", "context", std::nullopt, noon), noon);
  client.enableManual(-5, true, std::nullopt, noon);
  EXPECT_EQ(helper->requests(),
            (Texts{secondGeneration, R"(enableManualV2 20 replace "pi" nil "event")",
                   R"(enableManualV2 20 replace "pi" "context" nil)",
                   "enableManualV2 -5 extend-only nil nil nil"}));
}

TEST_F(NODOHelperXPCClientFallbackTest, ARequesterIsDroppedForAnOlderDaemon) {
  helper->knowsSecondGeneration = false;
  EXPECT_EQ(client.enableManual(20, false, claude, noon), helper->status);
  EXPECT_EQ(
      helper->requests(),
      (Texts{R"(enableManualV2 20 replace "Claude Code" "project" "Stop")", "enableManual 20"}));
}

TEST_F(NODOHelperXPCClientFallbackTest, EveryKindOfFailureLeadsToTheFirstGeneration) {
  const struct {
    const char* name;
    FakeHelper::Answer answer;
  } cases[] = {
      {"unknown selector", [](const auto& request) { request.fail("unknown selector"); }},
      {"no std::exception", [](const auto& request) { request.fail(std::make_exception_ptr(5)); }},
      {"interrupted", [](const auto& request) { request.interrupt(); }},
      {"invalidated", [](const auto& request) { request.invalidate(); }},
      {"refused", [](const auto& request) { request.refuse("invalid duration"); }},
      {"refused without a reason", [](const auto& request) { request.refuse(""); }},
      {"no text", [](const auto& request) { request.reply(std::nullopt); }},
      {"no JSON", [](const auto& request) { request.reply("?"); }},
      {"no status", [](const auto& request) { request.reply("{}"); }},
      {"the wrong report", [&](const auto& request) { request.reply(helper->run); }},
  };

  std::size_t expected = 0;
  for (const auto& each : cases) {
    helper->answer("enableManualV2", each.answer);
    EXPECT_EQ(client.enableManual(20, false, claude, noon), helper->status) << each.name;
    expected += 2;
    ASSERT_EQ(helper->requests().size(), expected) << each.name;
    EXPECT_EQ(helper->requests().back(), "enableManual 20") << each.name;
  }
  EXPECT_EQ(helper->openConnections(), 0U);
}

TEST_F(NODOHelperXPCClientFallbackTest, ATimeOutLeadsToTheFirstGeneration) {
  client.timeout = impatience;
  helper->answer("enableManualV2", [](const auto&) {});
  EXPECT_EQ(client.enableManual(20, false, claude, noon), helper->status);
  EXPECT_EQ(helper->requests().back(), "enableManual 20");
}

TEST_F(NODOHelperXPCClientFallbackTest, ALaterTimerIsLeftAloneByAnOlderDaemon) {
  helper->knowsSecondGeneration = false;
  letTimerEndIn(30 * 60);
  EXPECT_EQ(extend(), helper->run.status);
  EXPECT_EQ(helper->requests(), (Texts{secondGeneration, "status", "reconcile"}));
}

TEST_F(NODOHelperXPCClientFallbackTest, AnEarlierTimerIsReplacedByAnOlderDaemon) {
  helper->knowsSecondGeneration = false;
  helper->answer("enableManual",
                 [&](const auto& request) { request.reply(reportWithStopReason("replaced")); });
  letTimerEndIn(10 * 60);
  EXPECT_EQ(extend(), reportWithStopReason("replaced"));
  EXPECT_EQ(helper->requests(), (Texts{secondGeneration, "status", "enableManual 20"}));
}

TEST_F(NODOHelperXPCClientFallbackTest, OnlyATimerThatEndsLaterIsLeftAlone) {
  const struct {
    std::optional<double> endsIn;
    std::int64_t minutes;
    const char* last;
  } cases[] = {
      {std::nullopt, 20, "enableManual 20"},
      {20 * 60, 20, "enableManual 20"},
      {20 * 60 + 1, 20, "reconcile"},
      {20 * 60 - 1, 20, "enableManual 20"},
      {-60, 0, "enableManual 0"},
      {-60, -2, "reconcile"},
      {60, largest / 60, "enableManual 153722867280912930"},
      {60, smallest / 60, "reconcile"},
  };

  helper->knowsSecondGeneration = false;
  for (const auto& each : cases) {
    helper->status.state.manualUntil =
        each.endsIn ? std::optional(noon + Seconds(*each.endsIn)) : std::nullopt;
    extend(each.minutes);
    EXPECT_EQ(helper->requests().back(), each.last)
        << each.endsIn.value_or(0) << " s, " << each.minutes << " min";
  }
}

TEST_F(NODOHelperXPCClientFallbackTest, ErrorsOfTheFallbackReachTheCaller) {
  helper->knowsSecondGeneration = false;
  letTimerEndIn(30 * 60);
  helper->answer("reconcile", [&](const auto& request) { request.reply(helper->status); });
  EXPECT_EQ(outcomeOf([&] { extend(); }), "Invalid helper response: missing run report");

  letTimerEndIn(10 * 60);
  helper->answer("enableManual", [](const auto& request) { request.fail("gone"); });
  EXPECT_EQ(outcomeOf([&] { extend(); }), "gone");

  helper->answer("status", [](const auto& request) { request.reply("?"); });
  EXPECT_THROW(extend(), DecodingError);
  EXPECT_EQ(helper->requests().back(), "status") << "nothing is sent after a failed look";
  EXPECT_EQ(helper->openConnections(), 0U);
}

TEST_F(NODOHelperXPCClientFallbackTest, AnAbsentDaemonIsAskedForItsStatusAndNothingMore) {
  helper->isInstalled = false;
  for (const char* request : {"enableManualV2", "status"}) {
    helper->answer(request, [](const auto&) {});
  }
  EXPECT_EQ(outcomeOf([&] { extend(); }), "Helper unavailable: connection invalidated");
  EXPECT_EQ(helper->requests(), (Texts{secondGeneration, "status"}));
}

using NODOHelperXPCClientFallbackDeathTest = NODOHelperXPCClientFallbackTest;

TEST_F(NODOHelperXPCClientFallbackDeathTest, AnEndThatOverflowsStopsTheProcess) {
  helper->knowsSecondGeneration = false;
  const char* message = "programming fault: the end of the manual timer overflows";
  for (const std::int64_t minutes : {largest, largest / 60 + 1, smallest, smallest / 60 - 1}) {
    EXPECT_DEATH(extend(minutes), message) << minutes << " without a timer";
  }
  letTimerEndIn(60);
  EXPECT_DEATH(extend(largest), message);
}

TEST_F(NODOHelperXPCClientFallbackTest, AnEndThatOverflowsIsNoMatterForADaemonThatKnowsBoth) {
  EXPECT_EQ(extend(largest), helper->status);
}

}  // namespace
}  // namespace nodo
