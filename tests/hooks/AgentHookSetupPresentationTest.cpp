#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/hooks/AgentHookSetupPresentation.h>
#include <NODOCore/hooks/Agents.h>

#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace nodo {
namespace {

using Action = AgentHookSetupAction;
using Presentation = AgentHookSetupPresentation;
using Reports = std::vector<AgentHookInstallReport>;
using Row = AgentHookActionResultRow;
using State = AgentHookActionResultState;
using Status = AgentHooksSetupStatus;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

AgentHookInstallReport unchanged(const char* target) {
  return {.target = target,
          .path = "/f",
          .changed = false,
          .message = "already installed",
          .error = std::nullopt};
}

AgentHookInstallReport changed(const char* target) {
  return {.target = target,
          .path = "/f",
          .changed = true,
          .message = "installed",
          .error = std::nullopt};
}

AgentHookInstallReport failed(const char* target) {
  return {.target = target,
          .path = "/f",
          .changed = false,
          .message = "failed",
          .error = "the disk is full"};
}

Status ready(const char* message) {
  return {Status::Ready{message}};
}

TEST(AgentHookSetupActionTest, EveryActionHasItsTitles) {
  const struct {
    Action action;
    const char* raw;
    const char* button;
    const char* busy;
    const char* busyStatus;
    const char* failure;
  } cases[] = {
      {Action::install, "install", "Install Hooks", "Installing...", "Installing hooks",
       "Hook install failed"},
      {Action::update, "update", "Update Hooks", "Updating...", "Updating hooks",
       "Hook update failed"},
      {Action::reinstall, "reinstall", "Reinstall", "Reinstalling...", "Reinstalling hooks",
       "Hook reinstall failed"},
  };

  ASSERT_EQ(std::size(cases), allCases<Action>().size());
  for (const auto& [action, raw, button, busy, busyStatus, failure] : cases) {
    EXPECT_EQ(rawValue(action), raw);
    EXPECT_EQ(buttonTitle(action), button);
    EXPECT_EQ(busyTitle(action), busy);
    EXPECT_EQ(busyStatusTitle(action), busyStatus);
    EXPECT_EQ(failureStatusTitle(action), failure);
  }
}

TEST(AgentHooksSetupStatusTest, EveryStatusSaysWhatItIsAndWhatItOffers) {
  const struct {
    Status status;
    const char* displayName;
    std::optional<Action> action;
    const char* actionTitle;
    bool isReady, needsUpdate, isInstalling, isBusy;
  } cases[] = {
      {{Status::Installing{Action::install}},
       "Installing hooks",
       std::nullopt,
       "Installing...",
       false,
       false,
       true,
       true},
      {{Status::Installing{Action::update}},
       "Updating hooks",
       std::nullopt,
       "Updating...",
       false,
       false,
       true,
       true},
      {{Status::Installing{Action::reinstall}},
       "Reinstalling hooks",
       std::nullopt,
       "Reinstalling...",
       false,
       false,
       true,
       true},
      {{Status::Ready{"All good"}},
       "All good",
       Action::reinstall,
       "Reinstall",
       true,
       false,
       false,
       false},
      {{Status::Outdated{"Old"}}, "Old", Action::update, "Update Hooks", false, true, false, false},
      {{Status::Partial{2, 4}},
       "2/4 hook targets installed",
       Action::install,
       "Install Hooks",
       false,
       false,
       false,
       false},
      {{Status::Failed{"Oops"}},
       "Oops",
       Action::install,
       "Install Hooks",
       false,
       false,
       false,
       false},
      {{Status::Checking{}},
       "Checking hooks",
       std::nullopt,
       "Checking...",
       false,
       false,
       false,
       true},
  };

  for (const auto& expected : cases) {
    const Status& status = expected.status;
    EXPECT_EQ(status.displayName(), expected.displayName);
    EXPECT_EQ(Presentation::action(status), expected.action) << expected.displayName;
    EXPECT_EQ(Presentation::actionTitle(status), expected.actionTitle) << expected.displayName;
    EXPECT_EQ(status.isReady(), expected.isReady) << expected.displayName;
    EXPECT_EQ(status.needsUpdate(), expected.needsUpdate) << expected.displayName;
    EXPECT_EQ(status.isInstalling(), expected.isInstalling) << expected.displayName;
    EXPECT_EQ(status.isBusy(), expected.isBusy) << expected.displayName;
  }
}

TEST(AgentHooksSetupStatusTest, EqualityMindsTheCaseAndWhatItCarries) {
  EXPECT_EQ(ready("x"), ready("x"));
  EXPECT_NE(ready("x"), ready("y"));
  EXPECT_NE(ready("x"), (Status{Status::Outdated{"x"}}));
  EXPECT_NE((Status{Status::Outdated{"x"}}), (Status{Status::Failed{"x"}}));
  EXPECT_NE((Status{Status::Partial{1, 4}}), (Status{Status::Partial{2, 4}}));
  EXPECT_NE((Status{Status::Installing{Action::install}}),
            (Status{Status::Installing{Action::update}}));
}

TEST(AgentHookActionResultRowTest, ItsJSONKeepsTheOrderOfItsFields) {
  const Row row{"grok", "Grok Build", State::failed, "no room"};
  const std::string json = encodeJSON(row, JSONLayout::compact);
  EXPECT_EQ(json, R"({"target":"grok","targetDisplayName":"Grok Build","state":"failed",)"
                  R"("message":"no room"})");
  EXPECT_EQ(decodeJSON<Row>(json), row);
  EXPECT_EQ(displayName(State::unchanged), "unchanged");
}

TEST(AgentHookSetupPresentationTest, AStartedActionIsUnderWay) {
  EXPECT_EQ(Presentation::startedStatus(Action::update),
            (Status{Status::Installing{Action::update}}));
}

TEST(AgentHookSetupPresentationTest, EveryAgentsReportGetsARow) {
  const Reports reports{changed("pi"), unchanged("claude"), failed("codex"), changed("grok")};
  EXPECT_THAT(Presentation::resultRows(Action::update, reports),
              ElementsAre(Row{"pi", "Pi", State::updated, "updated"},
                          Row{"claude", "Claude Code", State::unchanged, "unchanged"},
                          Row{"codex", "Codex", State::failed, "the disk is full"},
                          Row{"grok", "Grok Build", State::updated, "updated"}));
  EXPECT_THAT(Presentation::resultRows(Action::install, {}), IsEmpty());
}

TEST(AgentHookSetupPresentationTest, TheMessageSaysWhichActionWasTaken) {
  const auto message = [](Action action) {
    return Presentation::resultRows(action, {changed("pi")}).front().message;
  };
  EXPECT_EQ(message(Action::install), "installed");
  EXPECT_EQ(message(Action::update), "updated");
  EXPECT_EQ(message(Action::reinstall), "reinstalled");
}

TEST(AgentHookSetupPresentationTest, AnErrorCountsMoreThanAChange) {
  AgentHookInstallReport report = failed("pi");
  report.changed = true;
  EXPECT_EQ(Presentation::resultRows(Action::install, {report}).front().state, State::failed);
}

TEST(AgentHookSetupPresentationTest, TheSharedScriptIsNoAgent) {
  const Reports reports{unchanged("pi"), changed("hook-script")};
  EXPECT_THAT(Presentation::resultRows(Action::install, reports),
              ElementsAre(Row{"pi", "Pi", State::unchanged, "unchanged"}));
  EXPECT_EQ(Presentation::completedStatus(Action::install, reports),
            ready("Hooks already current"));
}

TEST(AgentHookSetupPresentationTest, WithoutAChangeTheHooksWereCurrent) {
  for (const Action action : allCases<Action>()) {
    EXPECT_EQ(Presentation::completedStatus(action, {unchanged("claude"), unchanged("pi")}),
              ready("Hooks already current"));
    EXPECT_EQ(Presentation::completedStatus(action, {}), ready("Hooks already current"));
  }
}

TEST(AgentHookSetupPresentationTest, OneFailureIsTheActionsFailure) {
  const Reports reports{changed("claude"), failed("codex"), changed("pi")};
  EXPECT_EQ(Presentation::completedStatus(Action::install, reports),
            (Status{Status::Failed{"Hook install failed"}}));
  EXPECT_EQ(Presentation::completedStatus(Action::update, reports),
            (Status{Status::Failed{"Hook update failed"}}));
  EXPECT_EQ(Presentation::completedStatus(Action::reinstall, reports),
            (Status{Status::Failed{"Hook reinstall failed"}}));
}

TEST(AgentHookSetupPresentationTest, TheAgentsThatWereChangedAreListed) {
  const auto status = [](Action action, const Reports& reports) {
    return Presentation::completedStatus(action, reports);
  };
  EXPECT_EQ(status(Action::install, {unchanged("claude"), changed("grok")}),
            ready("Hooks installed for Grok Build"));
  EXPECT_EQ(status(Action::update, {changed("claude"), changed("codex"), unchanged("pi")}),
            ready("Hooks updated for Claude Code and Codex"));
  EXPECT_EQ(status(Action::reinstall, {changed("claude"), changed("codex"), changed("pi")}),
            ready("Hooks reinstalled for Claude Code, Codex, and Pi"));
  EXPECT_EQ(status(Action::install,
                   {changed("pi"), changed("grok"), changed("codex"), changed("claude")}),
            ready("Hooks installed for Pi, Grok Build, Codex, and Claude Code"));
}

}  // namespace
}  // namespace nodo
