#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/daemon/Daemon.h>

#include <algorithm>
#include <exception>
#include <utility>
#include <variant>

namespace nodo {
namespace {

// What the daemon does for each request.
struct Service {
  LockKeeper& keeper;
  Date now;

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
                        now);
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

Daemon::Daemon(LockKeeper& keeper, DaemonLoop& loop, std::function<Date()> now, DaemonLog log,
               Seconds releaseGrace)
    : keeper_(keeper),
      loop_(loop),
      now_(std::move(now)),
      log_(std::move(log)),
      releaseGrace_(releaseGrace) {}

void Daemon::run() {
  loop_.serve(*this);
  passByItself("start");
  try {
    loop_.run(
        {.machineChanged = [this](const std::vector<News>& news) { passByItself(listed(news)); },
         .timerFired = [this] { passByItself("timer"); },
         .hungUp = [this] { passByItself("hangup"); },
         .terminate = [this] { keeper_.shutDown(now_()); }});
  } catch (const std::exception&) {
    keeper_.shutDown(now_());
    throw;
  }
}

// ---- requests

void Daemon::perform(HelperRequest request, HelperReply reply) {
  if (isLook(request)) {
    reply(statusText());
    return;
  }
  const NODOHelperCommandResponse response = answer(request, now_());
  lastStatus_.reset();
  schedule();
  reply(encodeJSON(response, JSONLayout::compact));
}

NODOHelperCommandResponse Daemon::answer(const HelperRequest& request, Date now) {
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
  const Date now = now_();
  const bool isFresh =
      lastStatus_ && now >= lastStatus_->madeAt && now < lastStatus_->madeAt + answerLifetime;
  if (!isFresh) {
    lastStatus_ = StatusAnswer{now, encodeJSON(answer(StatusRequest{}, now), JSONLayout::compact)};
  }
  return lastStatus_->text;
}

// ---- passes

void Daemon::passByItself(const std::string& occasion) {
  lastStatus_.reset();
  try {
    keeper_.pass(now_());
    lastPassFailure_.clear();
    lastLookFailure_.clear();
  } catch (const std::exception& error) {
    logOnce(lastPassFailure_, "pass failed (" + occasion + ")", error.what());
  }
  schedule();
}

void Daemon::logOnce(std::string& last, const std::string& what, const std::string& reason) {
  if (last != reason) {
    last = reason;
    log_(what + ": " + reason);
  }
}

void Daemon::schedule() {
  const Date now = now_();
  const std::optional<Date> next = keeper_.nextPass(now, releaseGrace_);
  loop_.setTimer(next ? std::optional(std::max(*next - now, Seconds(0))) : std::nullopt);
  loop_.afterPass(keeper_.isHeld(), keeper_.seen());
}

}  // namespace nodo
