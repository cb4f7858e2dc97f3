#include <NODOCore/base/LocalTime.h>
#include <programs/nodo-menu/Dialogs.h>
#include <programs/nodo-menu/Program.h>

#include <QApplication>
#include <QMetaObject>
#include <QString>
#include <QVariant>
#include <algorithm>
#include <chrono>
#include <exception>
#include <system_error>
#include <utility>

namespace nodo::menu {
namespace {

constexpr char putOffKey[] = "remindersPutOffUntil";  // seconds since 1970
constexpr Seconds week(std::chrono::hours(24 * 7));

// Agents write to the hook log in bursts.
constexpr std::chrono::seconds burst(1);

std::optional<Date> putOffUntil(const QSettings& settings) {
  const QVariant value = settings.value(putOffKey);
  return value.isValid() ? std::optional(dateFromSeconds(value.toDouble())) : std::nullopt;
}

ClockTime inAnHour(Date now) {
  const Date later = now + Seconds(std::chrono::hours(1));
  return clockTimeFromText(clockText(later, later)).value();
}

}  // namespace

Program::Program(ProgramContext context)
    : context_(std::move(context)),
      model_(context_.restartCommand),
      hookLog_(context_.hookLog),
      tray_(trayActions()),
      questions_(context_.serve, [this] {
        QMetaObject::invokeMethod(
            &here_, [this] { takeReplies(); }, Qt::QueuedConnection);
      }) {
  model_.putOffReminders(putOffUntil(context_.settings));
  // Never early, as the minute that it waits for would not be over.
  timer_.setTimerType(Qt::PreciseTimer);
  timer_.setSingleShot(true);
  QObject::connect(&timer_, &QTimer::timeout, &here_, [this] { timePassed(); });
  hookLogTimer_.setSingleShot(true);
  QObject::connect(&hookLogTimer_, &QTimer::timeout, &here_, [this] { readHookLog(); });
  const auto soon = [this] {
    if (!hookLogTimer_.isActive()) {
      hookLogTimer_.start(burst);
    }
  };
  QObject::connect(&hookLogWatcher_, &QFileSystemWatcher::fileChanged, &here_, soon);
  QObject::connect(&hookLogWatcher_, &QFileSystemWatcher::directoryChanged, &here_, [this, soon] {
    std::error_code unseen;
    if (std::filesystem::exists(hookLog_.path(), unseen)) {
      soon();
    }
  });
  watchHookLog();
}

TrayActions Program::trayActions() {
  return {.wish =
              [this](const Wish& wish) {
                if (const auto* setUp = std::get_if<SetUpHooks>(&wish)) {
                  delete question_;  // one at a time
                  question_ = askToSetUp(&dialogs_, setUp->action, [this, wish] { ask(wish); });
                } else {
                  ask(wish);
                }
              },
          .askForTime =
              [this] {
                delete question_;
                question_ = askForTime(&dialogs_, inAnHour(context_.now()),
                                       [this](ClockTime time) { ask(KeepAwake{time}); });
              },
          .why = [this] { showWindow(); },
          .putOffReminders =
              [this](bool putOff) {
                const Date until = context_.now() + (putOff ? week : Seconds(0));
                context_.settings.setValue(putOffKey, (until - dateFromSeconds(0)).count());
                model_.putOffReminders(until);
                refresh();
              },
          .startAtLogin =
              [this](bool on) {
                try {
                  context_.login.turn(on);
                } catch (const std::exception& error) {
                  tell(&dialogs_,
                       std::string("Start at login could not be changed.\n") + error.what());
                }
                refresh();
              },
          .menuOpens = [this] { look(); },
          .quit = [] { QApplication::quit(); }};
}

void Program::start() {
  look();
  refresh();
  whenIconsCanBeShown(here_, [this](MenuDrawer drawer) {
    tray_.showIcon(drawer);
    refresh();
  });
}

void Program::showWindow() {
  if (!window_) {
    window_ = std::make_unique<WhyWindow>([this] { look(); });
  }
  if (!window_->isVisible()) {
    model_.forgetReasons();
  }
  window_->present();
  refresh();
}

void Program::ask(const Wish& wish) {
  model_.asked(wish);
  questions_.ask(wish);
  refresh();
}

void Program::look() {
  questions_.ask(Look{.listens = !news_ || isDaemonMissing_, .findsReasons = isWindowVisible()});
}

void Program::takeReplies() {
  for (Reply& reply : questions_.take()) {
    take(std::move(reply));
  }
  const auto wait = model_.timeToAsk(context_.now());
  askAt_ = wait ? std::optional(context_.now() + *wait) : std::nullopt;
  refresh();
}

void Program::take(Reply reply) {
  if (const auto* asked = std::get_if<Look>(&reply.wish); asked != nullptr && asked->listens) {
    listenTo(std::move(reply.news));
  }
  model_.take(reply);
  if (std::holds_alternative<SetUpHooks>(reply.wish)) {
    tell(&dialogs_, model_.setupResult().value_or(""));
  }
  if (!std::holds_alternative<Look>(reply.wish) && isWindowVisible()) {
    look();  // the other wishes find out no reasons
  }
  if (!reply.facts) {
    return;
  }
  isDaemonMissing_ = reply.facts->status.unavailable.has_value();
  if (const auto notice = notices_.take(*reply.facts)) {
    tray_.notify(*notice);
  }
}

void Program::listenTo(std::shared_ptr<ChangeNews> news) {
  newsNotifier_.reset();
  news_ = std::move(news);
  model_.hearsNews(news_ != nullptr);
  if (news_) {
    newsNotifier_ = std::make_unique<QSocketNotifier>(news_->descriptor(), QSocketNotifier::Read);
    QObject::connect(newsNotifier_.get(), &QSocketNotifier::activated, &here_, [this] { hear(); });
  }
}

void Program::hear() {
  try {
    if (news_->take()) {
      look();
    }
  } catch (const std::exception&) {
    // The bus is gone; whether it is back the next looks find out.
    newsNotifier_->setEnabled(false);
    newsNotifier_.release()->deleteLater();  // it is calling
    listenTo(nullptr);
    look();
  }
}

// A hook that does without the daemon tells nobody else. Until there is a log its folder is
// watched.
void Program::watchHookLog() {
  const QString path = QString::fromStdString(hookLog_.path().string());
  const QString folder = QString::fromStdString(hookLog_.path().parent_path().string());
  if (hookLogWatcher_.addPath(path)) {
    hookLogWatcher_.removePath(folder);
  } else if (!hookLogWatcher_.files().contains(path)) {
    hookLogWatcher_.addPath(folder);
  }
}

void Program::readHookLog() {
  watchHookLog();
  if (hookLog_.tellsOfFallback()) {
    look();
  }
}

void Program::refresh() {
  const Date now = context_.now();
  tray_.show(model_.view(now), context_.login.isOn());
  if (isWindowVisible()) {
    window_->setFacts(model_, now);
  }
  auto wait = model_.timeToRedraw(now);
  if (askAt_) {
    const Seconds toAsk = std::max(*askAt_ - now, Seconds(0));
    wait = std::min(wait.value_or(toAsk), toAsk);
  }
  if (wait) {
    // Qt's timers count milliseconds in 32 bits.
    constexpr Seconds longest(std::chrono::hours(24));
    timer_.start(std::chrono::ceil<std::chrono::milliseconds>(std::min(*wait, longest)));
  } else {
    timer_.stop();
  }
}

void Program::timePassed() {
  if (askAt_ && *askAt_ <= context_.now()) {
    askAt_.reset();  // until the reply
    look();
  }
  refresh();
}

}  // namespace nodo::menu
