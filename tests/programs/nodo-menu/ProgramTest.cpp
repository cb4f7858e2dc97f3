#include <programs/nodo-menu/Program.h>
#include <testing/TemporaryFolder.h>

#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QTest>
#include <QTimeEdit>
#include <algorithm>
#include <condition_variable>
#include <fstream>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include <tests/programs/nodo-menu/SampleFacts.h>
#include <unistd.h>

namespace nodo::menu {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Not;

// News that come, or end, when the test says so.
class ScriptedNews : public ChangeNews {
 public:
  ScriptedNews() {
    if (::pipe(ends_) != 0) {
      throw std::runtime_error("no pipe");
    }
  }

  ScriptedNews(const ScriptedNews&) = delete;
  ScriptedNews& operator=(const ScriptedNews&) = delete;

  ~ScriptedNews() override {
    ::close(ends_[0]);
    ::close(ends_[1]);
  }

  int descriptor() const override { return ends_[0]; }

  bool take() override {
    char what = 0;
    if (::read(ends_[0], &what, 1) != 1 || what == 'x') {
      throw std::runtime_error("the bus is gone");
    }
    ++timesTaken_;
    return what == 'c';
  }

  int timesTaken() const { return timesTaken_; }

  void send(char what) const { EXPECT_EQ(::write(ends_[1], &what, 1), 1); }

 private:
  int ends_[2] = {-1, -1};
  int timesTaken_ = 0;
};

class ProgramTest : public ::testing::Test {
 protected:
  ProgramTest() { program.start(); }

  // Of the worker's thread.
  Reply serve(const Wish& wish) {
    std::unique_lock guard(lock);
    changed.wait(guard, [this] { return !isHeldUp; });
    wishes.push_back(wish);
    Reply reply{.wish = wish, .facts = facts};
    if (const auto* look = std::get_if<Look>(&wish); look != nullptr && look->listens) {
      reply.news = news;
    }
    if (std::holds_alternative<SetUpHooks>(wish)) {
      reply.reports = {{.target = "claude", .path = "", .changed = true, .message = "done"}};
    }
    return reply;
  }

  void become(const nodoctl::HealthFacts& now) {
    const std::lock_guard guard(lock);
    facts = now;
  }

  void holdUp(bool on) {
    const std::lock_guard guard(lock);
    isHeldUp = on;
    changed.notify_one();
  }

  std::vector<Wish> wishesSoFar() {
    const std::lock_guard guard(lock);
    return wishes;
  }

  bool waitForWish(const Wish& wish) {
    return QTest::qWaitFor([&] {
      const auto all = wishesSoFar();
      return std::find(all.begin(), all.end(), wish) != all.end();
    });
  }

  bool waitForEntry(const std::string& beginning) {
    return QTest::qWaitFor([&] { return entry(beginning) != nullptr; });
  }

  QAction* entry(const std::string& beginning) {
    for (QAction* action : actionsOf(program.tray().menu())) {
      if (action->isVisible() && action->text().toStdString().rfind(beginning, 0) == 0) {
        return action;
      }
    }
    return nullptr;
  }

  static QList<QAction*> actionsOf(const QMenu& menu) {
    QList<QAction*> actions = menu.actions();
    for (const QAction* action : menu.actions()) {
      if (action->menu() != nullptr) {
        actions += action->menu()->actions();
      }
    }
    return actions;
  }

  static bool waitForDialog(QDialog*& dialog) {
    return QTest::qWaitFor([&] {
      dialog = qobject_cast<QDialog*>(QApplication::activeWindow());
      return dialog != nullptr;
    });
  }

  test::TemporaryFolder folder;
  std::mutex lock;
  std::condition_variable changed;
  bool isHeldUp = false;
  nodoctl::HealthFacts facts = sample::idle();
  std::vector<Wish> wishes;
  std::shared_ptr<ScriptedNews> news = std::make_shared<ScriptedNews>();
  QSettings settings{QString::fromStdString((folder / "menu.ini").string()), QSettings::IniFormat};
  LoginItem login{
      LoginItem::Kind::xdgAutostart, {{"HOME", folder.path().string()}}, "/usr/bin/nodo-menu"};
  Program program{{.serve = [this](const Wish& wish) { return serve(wish); },
                   .restartCommand = "sudo restart",
                   .now = [] { return sample::now; },
                   .hookLog = folder / "hook.log",
                   .login = login,
                   .settings = settings}};
};

TEST_F(ProgramTest, AtFirstItListensAndLooksOnce) {
  ASSERT_TRUE(waitForEntry("Not kept awake"));
  EXPECT_THAT(wishesSoFar(), ElementsAre(Wish(Look{.listens = true})));
}

TEST_F(ProgramTest, NewsOfAChangeAreLookedInto) {
  ASSERT_TRUE(waitForEntry("Not kept awake"));
  become(sample::keptAwake());
  news->send('c');
  EXPECT_TRUE(waitForEntry("Kept awake until"));
  EXPECT_THAT(wishesSoFar(), ElementsAre(Wish(Look{.listens = true}), Wish(Look())));
}

TEST_F(ProgramTest, NewsOfNothingAreNoReasonToAsk) {
  ASSERT_TRUE(waitForEntry("Not kept awake"));
  news->send('-');
  news->send('-');
  ASSERT_TRUE(QTest::qWaitFor([&] { return news->timesTaken() == 2; }));
  entry("1 hour")->trigger();  // comes after whatever was asked
  ASSERT_TRUE(waitForWish(KeepAwake{std::int64_t{60}}));
  EXPECT_EQ(wishesSoFar().size(), 2U);
}

TEST_F(ProgramTest, WhenTheBusIsGoneItListensAnew) {
  ASSERT_TRUE(waitForEntry("Not kept awake"));
  const auto old = news;
  {
    const std::lock_guard guard(lock);
    news = std::make_shared<ScriptedNews>();
  }
  old->send('x');
  ASSERT_TRUE(QTest::qWaitFor([&] { return wishesSoFar().size() == 2; }));
  EXPECT_EQ(wishesSoFar().back(), Wish(Look{.listens = true}));
  ASSERT_TRUE(QTest::qWaitFor([&] { return old.use_count() == 1; }));
  become(sample::keptAwake());
  news->send('c');
  EXPECT_TRUE(waitForEntry("Kept awake until"));
}

TEST_F(ProgramTest, WhatIsChosenIsAskedForAndItsReplyShown) {
  ASSERT_TRUE(waitForEntry("Not kept awake"));
  become(sample::keptAwake(60));
  entry("1 hour")->trigger();
  EXPECT_TRUE(waitForEntry("Stop keeping awake"));
  EXPECT_THAT(wishesSoFar(), Contains(Wish(KeepAwake{std::int64_t{60}})));
}

TEST_F(ProgramTest, AQuestionThatTakesLongHoldsUpNothing) {
  ASSERT_TRUE(waitForEntry("Not kept awake"));
  holdUp(true);
  entry("1 hour")->trigger();
  entry("Start at &login")->trigger();
  EXPECT_TRUE(entry("Start at &login")->isChecked());
  EXPECT_EQ(wishesSoFar().size(), 1U);
  holdUp(false);
  EXPECT_TRUE(waitForWish(KeepAwake{std::int64_t{60}}));
}

TEST_F(ProgramTest, StartAtLoginIsTheLoginItem) {
  ASSERT_TRUE(waitForEntry("Not kept awake"));
  entry("Start at &login")->trigger();
  EXPECT_TRUE(login.isOn());
  entry("Start at &login")->trigger();
  EXPECT_FALSE(login.isOn());
  EXPECT_FALSE(entry("Start at &login")->isChecked());
}

TEST_F(ProgramTest, TheWindowIsToldTheReasonsAndEachChangeAfterwards) {
  ASSERT_TRUE(waitForEntry("Not kept awake"));
  entry("&Why?")->trigger();
  EXPECT_TRUE(program.isWindowVisible());
  EXPECT_TRUE(waitForWish(Look{.findsReasons = true}));
  const std::size_t before = wishesSoFar().size();
  news->send('c');
  ASSERT_TRUE(QTest::qWaitFor([&] { return wishesSoFar().size() > before; }));
  EXPECT_EQ(wishesSoFar().back(), Wish(Look{.findsReasons = true}));
}

TEST_F(ProgramTest, HooksAreInstalledOnlyOnceAPersonHasAgreedAndTheResultIsTold) {
  ASSERT_TRUE(waitForEntry("Not kept awake"));
  nodoctl::HealthFacts missing = sample::idle();
  missing.forFindings.hooks->targets[0].status = AgentHookComponentStatus::missing;
  become(missing);
  news->send('c');
  ASSERT_TRUE(waitForEntry("Install Hooks"));
  QDialog* dialog = nullptr;

  entry("Install Hooks")->trigger();
  ASSERT_TRUE(waitForDialog(dialog));
  QTest::keyClick(dialog, Qt::Key_Escape);
  ASSERT_TRUE(QTest::qWaitFor([] { return QApplication::activeWindow() == nullptr; }));
  EXPECT_THAT(wishesSoFar(), Not(Contains(Wish(SetUpHooks{AgentHookSetupAction::install}))));

  become(sample::idle());
  entry("Install Hooks")->trigger();
  ASSERT_TRUE(waitForDialog(dialog));
  EXPECT_TRUE(
      qobject_cast<QMessageBox*>(dialog)->text().contains(QLatin1String("Claude Code: ~/")));
  QTest::keyClick(dialog, Qt::Key_Return);
  ASSERT_TRUE(waitForWish(SetUpHooks{AgentHookSetupAction::install}));
  QMessageBox* told = nullptr;
  ASSERT_TRUE(QTest::qWaitFor([&] {
    told = qobject_cast<QMessageBox*>(QApplication::activeWindow());
    return told != nullptr && told != dialog;
  }));
  EXPECT_EQ(told->text(), QLatin1String("Hooks installed for Claude Code\nClaude Code: installed"));
  EXPECT_EQ(told->textFormat(), Qt::PlainText);
}

TEST_F(ProgramTest, RemindersThatArePutOffStaySoAfterANewStart) {
  ASSERT_TRUE(waitForEntry("Not kept awake"));
  nodoctl::HealthFacts missing = sample::idle();
  missing.forFindings.hooks->targets[0].status = AgentHookComponentStatus::missing;
  become(missing);
  news->send('c');
  ASSERT_TRUE(waitForEntry("Remind me in a week"));
  entry("Remind me in a week")->trigger();
  EXPECT_NE(entry("Remind me again"), nullptr);

  Program again{{.serve = [this](const Wish& wish) { return serve(wish); },
                 .restartCommand = "sudo restart",
                 .now = [] { return sample::now; },
                 .hookLog = folder / "hook.log",
                 .login = login,
                 .settings = settings}};
  again.start();
  EXPECT_TRUE(QTest::qWaitFor([&] {
    const auto actions = actionsOf(again.tray().menu());
    return std::any_of(actions.begin(), actions.end(), [](const QAction* action) {
      return action->isVisible() && action->text() == QLatin1String("Remind me again");
    });
  }));
}

TEST_F(ProgramTest, AFallbackInTheHookLogIsLookedIntoAlsoWhereThereWasNoLog) {
  ASSERT_TRUE(waitForEntry("Not kept awake"));
  nodoctl::HealthFacts active = sample::idle();
  active.forFindings.hookFallback = {
      .isActive = true, .logPath = "", .lastStartedAt = sample::now, .fallbackSeconds = 600};
  become(active);
  std::ofstream(folder / "hook.log") << "2026-01-31 08:15:00 fallback caffeinate started\n";
  EXPECT_TRUE(waitForEntry("A hook could not reach the daemon"));
  EXPECT_EQ(wishesSoFar().size(), 2U);
}

TEST_F(ProgramTest, OnlyOneQuestionIsAskedAtATime) {
  ASSERT_TRUE(waitForEntry("Not kept awake"));
  entry("Until a &time...")->trigger();
  entry("Until a &time...")->trigger();
  QDialog* dialog = nullptr;
  ASSERT_TRUE(waitForDialog(dialog));
  int shown = 0;
  for (const QWidget* widget : QApplication::topLevelWidgets()) {
    shown += widget->isVisible() && qobject_cast<const QDialog*>(widget) != nullptr ? 1 : 0;
  }
  EXPECT_EQ(shown, 1);
}

TEST_F(ProgramTest, ATimeOfDayCanBeChosenByKeyboard) {
  ASSERT_TRUE(waitForEntry("Not kept awake"));
  entry("Until a &time...")->trigger();
  QDialog* dialog = nullptr;
  ASSERT_TRUE(waitForDialog(dialog));
  auto* const time = dialog->findChild<QTimeEdit*>();
  ASSERT_NE(time, nullptr);
  time->setFocus();
  QTest::keyClicks(time, "2305");
  EXPECT_EQ(time->time(), QTime(23, 5));
  QTest::keyClick(dialog, Qt::Key_Return);
  EXPECT_TRUE(waitForWish(KeepAwake{ClockTime{.hour = 23, .minute = 5}}));
}

}  // namespace
}  // namespace nodo::menu
