#include <programs/nodo-menu/Tray.h>

#include <QAction>
#include <QStringList>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include <tests/programs/nodo-menu/SampleFacts.h>

namespace nodo::menu {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsSupersetOf;
using ::testing::Not;

MenuView someView() {
  return {.icon = MenuBarIconState::manualActive,
          .headline = "Kept awake.",
          .notices = {"Last request: R&D, 08:00", "No agent runs"},
          .stop = MenuEntry{"Stop keeping awake", Stop()},
          .pause = MenuEntry{"Pause for an hour", Pause()}};
}

SetupView someSetup(bool isExpanded) {
  return {.line = "Setup: install hooks",
          .action = MenuEntry{"Install Hooks", SetUpHooks{AgentHookSetupAction::install}},
          .isExpanded = isExpanded};
}

class TrayTest : public ::testing::Test {
 protected:
  // The words that are shown, without the marks of keys.
  static std::vector<std::string> textsOf(const QMenu& menu) {
    std::vector<std::string> texts;
    for (const QAction* action : menu.actions()) {
      if (action->isVisible() && !action->isSeparator()) {
        texts.push_back(action->text().toStdString());
      }
    }
    return texts;
  }

  QAction* entry(const std::string& text) const { return entryOf(tray.menu(), text); }

  static QAction* entryOf(const QMenu& menu, const std::string& text) {
    for (QAction* action : menu.actions()) {
      if (action->text().toStdString() == text) {
        return action;
      }
      if (action->menu() != nullptr) {
        if (QAction* found = entryOf(*action->menu(), text)) {
          return found;
        }
      }
    }
    return nullptr;
  }

  std::vector<Wish> wishes;
  std::vector<std::string> calls;
  Tray tray{{.wish = [this](const Wish& wish) { wishes.push_back(wish); },
             .askForTime = [this] { calls.emplace_back("time"); },
             .why = [this] { calls.emplace_back("why"); },
             .putOffReminders = [this](bool off) { calls.emplace_back(off ? "off" : "on"); },
             .startAtLogin = [this](bool on) { calls.emplace_back(on ? "login" : "no login"); },
             .menuOpens = [this] { calls.emplace_back("opens"); },
             .quit = [this] { calls.emplace_back("quit"); }}};
};

TEST_F(TrayTest, TheHeadlineComesFirstAndWhatCanBeDoneBelowTheNotices) {
  tray.show(someView(), false);
  EXPECT_THAT(
      textsOf(tray.menu()),
      ElementsAre("Kept awake.", "Last request: R&&D, 08:00", "No agent runs", "&Keep awake for",
                  "Stop keeping awake", "Pause for an hour", "&Why?", "Start at &login", "&Quit"));
}

TEST_F(TrayTest, AFailureComesBeforeTheHeadline) {
  MenuView view = someView();
  view.failure = "no daemon";
  tray.show(view, false);
  EXPECT_EQ(textsOf(tray.menu()).front(), "Failed: no daemon");
}

TEST_F(TrayTest, LongLinesAreBrokenBetweenWords) {
  MenuView view = someView();
  view.headline = std::string(50, 'a') + " " + std::string(50, 'b');
  tray.show(view, false);
  EXPECT_THAT(textsOf(tray.menu()), IsSupersetOf({std::string(50, 'a'), std::string(50, 'b')}));
}

TEST_F(TrayTest, LinesThatOnlyTellCannotBeChosen) {
  tray.show(someView(), false);
  EXPECT_FALSE(entry("Kept awake.")->isEnabled());
  EXPECT_TRUE(entry("Stop keeping awake")->isEnabled());
}

TEST_F(TrayTest, WhatIsChosenIsWished) {
  tray.show(someView(), false);
  entry("1 hour")->trigger();
  entry("Stop keeping awake")->trigger();
  entry("Pause for an hour")->trigger();
  EXPECT_THAT(wishes, ElementsAre(Wish(KeepAwake{std::int64_t{60}}), Wish(Stop()), Wish(Pause())));
}

TEST_F(TrayTest, TheOtherEntriesDoWhatTheySay) {
  tray.show(someView(), false);
  entry("Until a &time...")->trigger();
  entry("&Why?")->trigger();
  entry("Start at &login")->trigger();
  entry("&Quit")->trigger();
  EXPECT_THAT(calls, ElementsAre("time", "why", "login", "quit"));
}

TEST_F(TrayTest, WhereThereIsNothingToStopNothingIsOffered) {
  MenuView view = someView();
  view.stop.reset();
  tray.show(view, false);
  EXPECT_THAT(textsOf(tray.menu()), Not(Contains("Stop keeping awake")));
}

TEST_F(TrayTest, TheSetupStandsInTheMenuAsLongAsItIsToBeSeen) {
  MenuView view = someView();
  view.setup = someSetup(true);
  tray.show(view, false);
  EXPECT_THAT(textsOf(tray.menu()),
              IsSupersetOf({"Setup: install hooks", "Install Hooks", "Remind me in a week"}));
  entry("Install Hooks")->trigger();
  EXPECT_THAT(wishes, ElementsAre(Wish(SetUpHooks{AgentHookSetupAction::install})));
  entry("Remind me in a week")->trigger();
  EXPECT_THAT(calls, ElementsAre("off"));
}

TEST_F(TrayTest, ASetupThatIsPutOffStandsBelowItsLine) {
  MenuView view = someView();
  view.setup = someSetup(true);
  tray.show(view, false);
  QAction* const action = entry("Install Hooks");
  view.setup = someSetup(false);
  tray.show(view, false);
  EXPECT_THAT(textsOf(tray.menu()), Contains("Setup: install hooks"));
  EXPECT_THAT(textsOf(tray.menu()), Not(Contains("Install Hooks")));
  EXPECT_EQ(entry("Install Hooks"), action);
  entry("Remind me again")->trigger();
  EXPECT_THAT(calls, ElementsAre("on"));
  view.setup.reset();
  tray.show(view, false);
  EXPECT_THAT(textsOf(tray.menu()), Not(Contains("Setup: install hooks")));
}

TEST_F(TrayTest, ASetupUnderWayCannotBeStartedAgain) {
  MenuView view = someView();
  view.setup = someSetup(true);
  view.setup->action = MenuEntry{"Installing...", std::nullopt};
  tray.show(view, false);
  EXPECT_FALSE(entry("Installing...")->isEnabled());
}

TEST_F(TrayTest, EntriesStayTheSameWhileTheirWordsChange) {
  tray.show(someView(), false);
  const QList<QAction*> before = tray.menu().actions();
  MenuView view = someView();
  view.headline = "Kept awake for a minute less.";
  view.pause = MenuEntry{"Resume the agents' hooks", Resume()};
  tray.show(view, true);
  EXPECT_EQ(tray.menu().actions(), before);
  EXPECT_TRUE(entry("Start at &login")->isChecked());
}

TEST_F(TrayTest, EveryEntryThatCanBeSeenHasAName) {
  MenuView view = someView();
  view.setup = someSetup(true);
  tray.show(view, false);
  EXPECT_THAT(textsOf(tray.menu()), Not(Contains("")));
}

TEST(MenuLabelTest, NoCharacterOfATextMarksAKey) {
  EXPECT_EQ(menuLabel("a_b", MenuDrawer::qt), QLatin1String("a_b"));
  EXPECT_EQ(menuLabel("a&b&c", MenuDrawer::qt), QLatin1String("a&&b&&c"));
  EXPECT_EQ(menuLabel("a_b", MenuDrawer::panel), QLatin1String("a__b"));
  EXPECT_EQ(menuLabel("a&b&c_d", MenuDrawer::panel), QLatin1String("&a&b&c__d"));
}

TEST_F(TrayTest, EachStateHasAnIconOfItsOwnShape) {
  std::vector<QImage> shapes;
  for (const MenuBarIconState state : allCases<MenuBarIconState>()) {
    const QImage shape =
        iconFor(state).pixmap(22, 22).toImage().convertToFormat(QImage::Format_Alpha8);
    ASSERT_FALSE(shape.isNull()) << rawValue(state);
    EXPECT_THAT(shapes, Not(Contains(shape))) << rawValue(state);
    shapes.push_back(shape);
  }
  EXPECT_EQ(shapes.size(), 4U);
}

}  // namespace
}  // namespace nodo::menu
