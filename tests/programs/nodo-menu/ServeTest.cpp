#include <programs/nodo-menu/Questions.h>
#include <testing/FakeHelper.h>
#include <testing/FakeMachine.h>
#include <testing/TemporaryFolder.h>

#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>

#include <gmock/gmock.h>

namespace nodo::menu {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::StartsWith;

// Wishes on a machine and with a daemon that the test sets.
class ServeTest : public ::testing::Test {
 protected:
  ServeTest() {
    helper->status.generatedAt = now;
    helper->status.state = NODOState::fresh(now);
  }

  Reply serve(const Wish& wish) {
    return menu::serve(wish, {},
                       {.environment = {{"HOME", folder.path().string()},
                                        {"NODO_HOOK_LOG", (folder / "hook.log").string()}},
                        .machine = {.processListing = machine,
                                    .snapshotProvider = machine,
                                    .sleepDiagnostics =
                                        [this](Date) {
                                          SleepDiagnosticsReading reading;
                                          reading.report.sleepDisabled = lockIsOn;
                                          return reading;
                                        }},
                        .helperConnecting = [this](const auto&) { return helper; },
                        .listenForChanges =
                            [this](const auto&, Seconds) {
                              ++timesListened;
                              return nullptr;
                            },
                        .restartCommand = "sudo restart",
                        .now = [] { return now; },
                        .output = output,
                        .error = output,
                        .startedAs = "/usr/bin/nodoctl"});
  }

  static constexpr Date now = dateFromSeconds(1'769'847'300);
  test::TemporaryFolder folder;
  std::shared_ptr<test::FakeHelper> helper = std::make_shared<test::FakeHelper>();
  std::shared_ptr<test::FakeMachine> machine = std::make_shared<test::FakeMachine>();
  bool lockIsOn = false;
  int timesListened = 0;
  std::ostringstream output;
};

TEST_F(ServeTest, ALookAsksForNothingButTheStatus) {
  const Reply reply = serve(Look());
  EXPECT_EQ(helper->requests(), std::vector<std::string>{"status"});
  EXPECT_EQ(timesListened, 0);
  ASSERT_TRUE(reply.facts);
  EXPECT_FALSE(reply.facts->status.unavailable);
}

TEST_F(ServeTest, OnlyALookThatShallListenListens) {
  serve(Look{.listens = true});
  EXPECT_EQ(timesListened, 1);
}

TEST_F(ServeTest, KeepingAwakeIsAskedForInTheNameOfTheMenu) {
  helper->status.state.manualUntil = now + Seconds(3600);
  helper->status.state.ownsSleepDisable = true;
  helper->status.manualRemainingSeconds = 3600;
  helper->status.decision.shouldPreventSleep = true;
  lockIsOn = true;
  const Reply reply = serve(KeepAwake{std::int64_t{60}});
  EXPECT_EQ(reply.failure, std::nullopt);
  EXPECT_THAT(helper->requests(),
              Contains(::testing::AllOf(StartsWith("enableManualV2 60"), HasSubstr("nodo-menu"))));
}

TEST_F(ServeTest, AWishThatCannotBeFulfilledSaysWhyAndHowThingsStand) {
  helper->refusal = "nobody there";
  const Reply reply = serve(KeepAwake{std::int64_t{60}});
  ASSERT_TRUE(reply.failure);
  EXPECT_THAT(*reply.failure, HasSubstr("nobody there"));
  ASSERT_TRUE(reply.facts);
  EXPECT_TRUE(reply.facts->status.unavailable);
}

TEST_F(ServeTest, ARequestThatTheDaemonRefusesIsToldOfThoughItAnswersOthers) {
  lockIsOn = true;
  const auto refuse = [](const test::FakeHelperRequest& request) { request.fail("not allowed"); };
  for (const char* request : {"enableManualV2", "enableManual", "stop"}) {
    helper->answer(request, refuse);
  }
  for (const Wish& wish : {Wish(KeepAwake{std::int64_t{60}}), Wish(Stop()), Wish(Pause())}) {
    const Reply reply = serve(wish);
    EXPECT_THAT(reply.failure.value_or(""), HasSubstr("not allowed"));
    ASSERT_TRUE(reply.facts);
    EXPECT_FALSE(reply.facts->status.unavailable);
  }
}

TEST_F(ServeTest, AStopThatLeavesTheLockIsAFailure) {
  lockIsOn = true;
  EXPECT_THAT(serve(Stop()).failure.value_or(""), StartsWith("Still kept awake"));
  lockIsOn = false;
  EXPECT_EQ(serve(Stop()).failure, std::nullopt);
}

TEST_F(ServeTest, APauseIsSeenInTheSameReplyAndEndsWithItsOwnWish) {
  EXPECT_EQ(serve(Pause()).facts->forFindings.hooksPausedUntil, now + Seconds(3600));
  EXPECT_EQ(serve(Resume()).facts->forFindings.hooksPausedUntil, std::nullopt);
}

TEST_F(ServeTest, HooksAreInstalledForAllAgentsAndReported) {
  const Reply reply = serve(SetUpHooks{AgentHookSetupAction::install});
  EXPECT_EQ(reply.failure, std::nullopt);
  EXPECT_TRUE(reply.facts->forFindings.hooks->isCurrent());
  EXPECT_EQ(
      AgentHookSetupPresentation::resultRows(AgentHookSetupAction::install, reply.reports).size(),
      allCases<AgentHookTarget>().size());
}

}  // namespace
}  // namespace nodo::menu
