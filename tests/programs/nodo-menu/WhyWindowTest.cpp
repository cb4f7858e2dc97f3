#include <programs/nodo-menu/WhyWindow.h>

#include <QApplication>
#include <QClipboard>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTest>
#include <string>

#include <gmock/gmock.h>

#include <tests/programs/nodo-menu/SampleFacts.h>

namespace nodo::menu {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

class WhyWindowTest : public ::testing::Test {
 protected:
  WhyWindowTest() { model.hearsNews(true); }

  void take(const nodoctl::HealthFacts& facts, const Look& look) {
    model.take({.number = ++number, .wish = look, .facts = facts});
    window.setFacts(model, sample::now);
  }

  QWidget* named(const char* name) const {
    for (QWidget* widget : window.findChildren<QWidget*>()) {
      if (widget->accessibleName() == QLatin1String(name)) {
        return widget;
      }
    }
    ADD_FAILURE() << "nothing has the name " << name;
    return nullptr;
  }

  std::string text(const char* name) const {
    return qobject_cast<QLabel*>(named(name))->text().toStdString();
  }

  QPlainTextEdit* report() const {
    return qobject_cast<QPlainTextEdit*>(named("The doctor's report"));
  }

  std::uint64_t number = 0;
  int timesOpened = 0;
  MenuModel model{"sudo restart"};
  WhyWindow window{[this] { ++timesOpened; }};
};

TEST_F(WhyWindowTest, ItTellsTheHeadlineTheFindingsAndTheReport) {
  take(sample::withoutDaemon(), {.findsReasons = true});
  EXPECT_THAT(text("Whether this computer is kept awake"), HasSubstr("no daemon nodod: gone"));
  EXPECT_THAT(text("What needs attention"), HasSubstr("Install the package nodo"));
  EXPECT_THAT(report()->toPlainText().toStdString(), StartsWith("nodo doctor\n"));
}

TEST_F(WhyWindowTest, WhereNothingNeedsAttentionItSaysSo) {
  take(sample::idle(), {.findsReasons = true});
  EXPECT_EQ(text("What needs attention"), "Nothing needs attention.");
}

TEST_F(WhyWindowTest, UntilTheReasonsAreKnownItTellsWhatIs) {
  take(sample::keptAwake(), {});
  EXPECT_THAT(text("Whether this computer is kept awake"), StartsWith("Kept awake until"));
  EXPECT_EQ(report()->toPlainText(), QString());
}

TEST_F(WhyWindowTest, TheReasonsAreAskedForEachTimeThatItOpens) {
  window.present();
  EXPECT_TRUE(window.isVisible());
  EXPECT_EQ(timesOpened, 1);
  window.present();
  EXPECT_EQ(timesOpened, 2);
}

TEST_F(WhyWindowTest, EscapeClosesIt) {
  window.present();
  QTest::keyClick(&window, Qt::Key_Escape);
  EXPECT_FALSE(window.isVisible());
}

TEST_F(WhyWindowTest, ItsPartsAreReachedByTheTabKeyAndItsButtonsByLetters) {
  take(sample::idle(), {.findsReasons = true});
  window.present();
  ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
  report()->setFocus();
  QTest::keyClick(report(), Qt::Key_Tab);
  EXPECT_NE(QApplication::focusWidget(), report());
  QTest::keyClick(&window, Qt::Key_O, Qt::AltModifier);
  EXPECT_TRUE(QTest::qWaitFor(
      [&] { return QApplication::clipboard()->text() == report()->toPlainText(); }));
}

TEST_F(WhyWindowTest, ThePictureIsToldInWords) {
  nodoctl::HealthFacts facts = sample::keptAwake();
  facts.status.report.state.triggerActivityBuckets = {
      {.startedAt = sample::now - Seconds(600), .count = 3}};
  take(facts, {});
  EXPECT_THAT(named("The last twelve hours")->accessibleDescription().toStdString(),
              StartsWith("In the last twelve hours: 3 requests, kept awake for"));
}

TEST_F(WhyWindowTest, HostileTextIsShownAsItIs) {
  nodoctl::HealthFacts facts = sample::withoutDaemon();
  facts.forFindings.restartCommand = "<img src=x>";
  take(facts, {.findsReasons = true});
  EXPECT_THAT(text("What needs attention"), HasSubstr("&lt;img src=x&gt;"));
}

TEST_F(WhyWindowTest, ItIsDrawnInTheColoursOfTheDesktop) {
  take(sample::keptAwake(), {});
  window.present();
  QWidget* const picture = named("The last twelve hours");
  const auto lightness = [&] { return picture->grab().toImage().pixelColor(1, 1).lightness(); };
  QPalette palette = window.palette();
  palette.setColor(QPalette::Window, Qt::black);
  palette.setColor(QPalette::WindowText, Qt::white);
  window.setPalette(palette);
  const int dark = lightness();
  palette.setColor(QPalette::Window, Qt::white);
  palette.setColor(QPalette::WindowText, Qt::black);
  window.setPalette(palette);
  EXPECT_LT(dark, 64);
  EXPECT_GT(lightness(), 192);
}

}  // namespace
}  // namespace nodo::menu
