#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/daemon/Daemon.h>

#include <algorithm>
#include <exception>
#include <stdexcept>
#include <utility>
#include <variant>

namespace nodo {
namespace {

// What the daemon does for each request.
struct Service {
  LockKeeper& keeper;
  Moment now;

  NODOHelperCommandResponse operator()(const StatusRequest&) const {
    return NODOHelperCommandResponse::success(keeper.status(now));
  }

  NODOHelperCommandResponse operator()(const EnableManualRequest& request) const {
    return NODOHelperCommandResponse::success(
        keeper.enableManual(request.minutes, false, std::nullopt, now));
  }

  NODOHelperCommandResponse operator()(const EnableManualV2Request& request) const {
    std::optional<ActivationRequester> requester;
    if (request.requesterName) {
      requester.emplace(*request.requesterName, request.requesterContext, request.requesterEvent,
                        now.civil);
    }
    return NODOHelperCommandResponse::success(
        keeper.enableManual(request.minutes, request.extendOnly, requester, now));
  }

  NODOHelperCommandResponse operator()(const StopRequest&) const {
    return NODOHelperCommandResponse::success(keeper.stop(now));
  }

  NODOHelperCommandResponse operator()(const ReconcileRequest&) const {
    return NODOHelperCommandResponse::success(keeper.pass(now));
  }

  NODOHelperCommandResponse operator()(const RepairRequest&) const {
    return NODOHelperCommandResponse::success(keeper.repair(now));
  }
};

}  // namespace

Daemon::Daemon(LockKeeper& keeper, DaemonLoop& loop, std::function<Moment()> now, DaemonLog log,
               EffectiveSettings settings, std::function<EffectiveSettings()> readSettings)
    : keeper_(keeper),
      loop_(loop),
      now_(std::move(now)),
      log_(std::move(log)),
      settings_(std::move(settings)),
      readSettings_(std::move(readSettings)) {}

void Daemon::run() {
  try {
    loop_.serve(*this);
    tellProblems();
    wake("start", false);
    loop_.run({.machineChanged =
                   [this](const std::vector<News>& news) {
                     wake(listed(news),
                          std::find(news.begin(), news.end(), News::resume) != news.end());
                   },
               .timerFired = [this] { wake("timer", false); },
               .hungUp = [this] { hangUp(); },
               .terminate = [this] { end(); }});
  } catch (const std::exception&) {
    end();
    throw;
  }
  if (mayLockStand_) {
    throw std::runtime_error("the sleep lock may still be on");
  }
}

void Daemon::hangUp() {
  settings_ = readSettings_();
  tellProblems();
  keeper_.use(settings_.settings);
  wake("hangup", false);
}

void Daemon::tellProblems() const {
  for (const std::string& problem : settings_.problems) {
    log_("settings: " + problem);
  }
}

void Daemon::end() {
  mayLockStand_ = !keeper_.shutDown(now_());
}

// ---- requests

void Daemon::perform(HelperRequest request, HelperReply reply) {
  if (isLook(request)) {
    reply(statusText());
    return;
  }
  const NODOHelperCommandResponse response = answer(request, now_());
  lastStatus_.reset();
  announce();
  schedule();
  reply(encodeJSON(response, JSONLayout::compact));
}

NODOHelperCommandResponse Daemon::answer(const HelperRequest& request, const Moment& now) {
  try {
    NODOHelperCommandResponse response = std::visit(Service{keeper_, now}, request);
    lastLookFailure_.clear();
    return response;
  } catch (const std::exception& error) {
    const std::string what = "request failed: " + logName(request);
    if (isLook(request)) {
      logOnce(lastLookFailure_, what, error.what());
    } else {
      log_(what + ": " + error.what());
    }
    return NODOHelperCommandResponse::failure(error);
  }
}

std::string Daemon::statusText() {
  const Moment now = now_();
  if (!lastStatus_ || now.running >= lastStatus_->madeAt + answerLifetime) {
    lastStatus_ =
        StatusAnswer{now.running, encodeJSON(answer(StatusRequest{}, now), JSONLayout::compact)};
  }
  return lastStatus_->text;
}

// ---- passes

void Daemon::wake(const std::string& occasion, bool resumed) {
  lastStatus_.reset();
  try {
    keeper_.wake(now_(), resumed);
    lastPassFailure_.clear();
    lastLookFailure_.clear();
  } catch (const std::exception& error) {
    logOnce(lastPassFailure_, "pass failed (" + occasion + ")", error.what());
  }
  announce();
  schedule();
}

void Daemon::logOnce(std::string& last, const std::string& what, const std::string& reason) {
  if (last != reason) {
    last = reason;
    log_(what + ": " + reason);
  }
}

void Daemon::announce() {
  if (keeper_.takeChange()) {
    loop_.announceChange();
  }
}

void Daemon::schedule() {
  loop_.setTimer(keeper_.nextWake(now_()));
  loop_.afterPass(keeper_.isHeld(), keeper_.seen());
}

}  // namespace nodo
