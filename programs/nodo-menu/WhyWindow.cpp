#include <NODOCore/base/LocalTime.h>
#include <NODOCore/diagnostics/Headline.h>
#include <programs/nodo-menu/HistoryPicture.h>
#include <programs/nodo-menu/WhyWindow.h>

#include <QClipboard>
#include <QDialogButtonBox>
#include <QFontDatabase>
#include <QGuiApplication>
#include <QPainter>
#include <QPalette>
#include <QPushButton>
#include <QScrollBar>
#include <QVBoxLayout>
#include <cstdint>
#include <string>
#include <utility>

namespace nodo::menu {
namespace {

// By the colours of this very window, whoever chose them.
bool isDark(const QWidget& widget) {
  const QPalette& palette = widget.palette();
  return palette.color(QPalette::Window).lightness() <
         palette.color(QPalette::WindowText).lightness();
}

std::string inWords(const HistoryReport& report) {
  std::int64_t requests = 0;
  for (const TriggerActivityBucket& minute : report.requestMinutes) {
    requests += minute.count;
  }
  Seconds held(0);
  for (const HistoryPeriod& period : report.lockPeriods) {
    held += period.endedAt - period.startedAt;
  }
  std::string text = "In the last twelve hours: " + std::to_string(requests) +
                     (requests == 1 ? " request" : " requests") + ", kept awake for " +
                     (held > Seconds(0) ? timeLeftText(held) : "no time");
  for (const HistoryPeriod& veto : report.vetoes) {
    text += ", sleep allowed by a safety rule from " + clockText(veto.startedAt, report.until) +
            " to " + clockText(veto.endedAt, report.until);
  }
  text += ".";
  if (report.lockKnownSince) {
    text += " Of the lock nothing is known before " +
            clockText(*report.lockKnownSince, report.until) + ".";
  }
  return text;
}

QString textOf(const std::vector<Finding>& findings) {
  if (findings.empty()) {
    return QStringLiteral("Nothing needs attention.");
  }
  QString text;
  for (const Finding& finding : findings) {
    text += QStringLiteral("<p><b>%1</b><br>%2</p>")
                .arg(QString::fromStdString(finding.what).toHtmlEscaped(),
                     QString::fromStdString(finding.toDo).toHtmlEscaped());
  }
  return text;
}

// Leaves alone what a person may have marked or scrolled to, unless it has changed.
void setTextIfChanged(QPlainTextEdit& edit, const QString& text) {
  if (edit.toPlainText() != text) {
    const int place = edit.verticalScrollBar()->value();
    edit.setPlainText(text);
    edit.verticalScrollBar()->setValue(place);
  }
}

}  // namespace

HistoryView::HistoryView(QWidget* parent) : QWidget(parent) {
  setAccessibleName(QStringLiteral("The last twelve hours"));
  setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

void HistoryView::setReport(const HistoryReport& report) {
  report_ = report;
  const QString words = QString::fromStdString(inWords(report));
  setAccessibleDescription(words);
  setToolTip(words);
  update();
}

void HistoryView::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  if (report_) {
    drawHistory(painter, rect(), *report_, isDark(*this));
  }
}

WhyWindow::WhyWindow(std::function<void()> opens)
    : opens_(std::move(opens)), headline_(this), history_(this), findings_(this), report_(this) {
  setWindowTitle(QStringLiteral("nodo: why this computer is kept awake, or not"));
  QFont large = headline_.font();
  large.setBold(true);
  large.setPointSizeF(large.pointSizeF() * 1.2);
  headline_.setFont(large);
  headline_.setAccessibleName(QStringLiteral("Whether this computer is kept awake"));
  findings_.setAccessibleName(QStringLiteral("What needs attention"));
  for (QLabel* label : {&headline_, &findings_}) {
    label->setWordWrap(true);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
  }
  headline_.setTextFormat(Qt::PlainText);
  findings_.setTextFormat(Qt::RichText);
  auto* reportLabel = new QLabel(QStringLiteral("The doctor's &report:"), this);
  reportLabel->setBuddy(&report_);
  report_.setAccessibleName(QStringLiteral("The doctor's report"));
  report_.setReadOnly(true);
  report_.setTabChangesFocus(true);
  report_.setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
  report_.setLineWrapMode(QPlainTextEdit::NoWrap);

  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
  QPushButton* copy =
      buttons->addButton(QStringLiteral("C&opy report"), QDialogButtonBox::ActionRole);
  connect(copy, &QPushButton::clicked, this,
          [this] { QGuiApplication::clipboard()->setText(report_.toPlainText()); });
  connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);

  auto* layout = new QVBoxLayout(this);
  layout->addWidget(&headline_);
  layout->addWidget(&history_);
  layout->addWidget(&findings_);
  layout->addWidget(reportLabel);
  layout->addWidget(&report_, 1);
  layout->addWidget(buttons);
  resize(720, 640);
}

void WhyWindow::setFacts(const MenuModel& model, Date now) {
  if (const auto history = model.history(now)) {
    history_.setReport(*history);
  }
  const auto why = model.why(now);
  headline_.setText(QString::fromStdString(model.view(now).headline));
  findings_.setText(why ? textOf(why->findings) : QString());
  setTextIfChanged(report_, QString::fromStdString(why ? why->report : ""));
}

void WhyWindow::present() {
  show();
  raise();
  activateWindow();
  opens_();
}

}  // namespace nodo::menu
