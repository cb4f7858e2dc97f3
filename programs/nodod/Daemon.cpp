#include <NODOCore/base/JSONCoding.h>
#include <programs/nodod/Daemon.h>

#include <algorithm>
#include <exception>
#include <utility>

namespace nodo::nodod {
namespace {

std::string text(const NODOHelperCommandResponse& response) {
  return encodeJSON(response, JSONLayout::compact);
}

}  // namespace

Daemon::Daemon(LockKeeper& keeper, DaemonLoop& loop, std::function<Date()> now, Log log,
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
    loop_.run({.machineChanged = [this](const std::string& what) { passByItself(what); },
               .timerFired = [this] { passByItself("timer"); },
               .terminate = [this] { keeper_.shutDown(now_()); }});
  } catch (const std::exception&) {
    keeper_.shutDown(now_());
    throw;
  }
}

// ---- requests

void Daemon::status(HelperReply reply) {
  reply(text(
      answer([this](Date now) { return NODOHelperCommandResponse::success(keeper_.status(now)); },
             [this](const std::string& reason) {
               logOnce(lastLookFailure_, "request failed: status", reason);
             })));
}

void Daemon::enableManual(std::int64_t minutes, HelperReply reply) {
  change(
      "manual",
      [&](Date now) {
        return NODOHelperCommandResponse::success(
            keeper_.enableManual(minutes, false, std::nullopt, now));
      },
      reply);
}

void Daemon::enableManualV2(std::int64_t minutes, bool extendOnly,
                            std::optional<std::string> requesterName,
                            std::optional<std::string> requesterContext,
                            std::optional<std::string> requesterEvent, HelperReply reply) {
  change(
      requesterName ? "manual of " + ActivationRequester(*requesterName, {}, {}, {}).name
                    : "manual",
      [&](Date now) {
        std::optional<ActivationRequester> requester;
        if (requesterName) {
          requester.emplace(*requesterName, requesterContext, requesterEvent, now);
        }
        return NODOHelperCommandResponse::success(
            keeper_.enableManual(minutes, extendOnly, requester, now));
      },
      reply);
}

void Daemon::stop(HelperReply reply) {
  change(
      "stop", [this](Date now) { return NODOHelperCommandResponse::success(keeper_.stop(now)); },
      reply);
}

void Daemon::reconcile(HelperReply reply) {
  change(
      "reconcile",
      [this](Date now) { return NODOHelperCommandResponse::success(keeper_.pass(now)); }, reply);
}

void Daemon::repair(HelperReply reply) {
  change(
      "repair",
      [this](Date now) { return NODOHelperCommandResponse::success(keeper_.repair(now)); }, reply);
}

void Daemon::change(const std::string& request, const Work& work, const HelperReply& reply) {
  const NODOHelperCommandResponse response = answer(
      work, [&](const std::string& reason) { log_("request failed: " + request + ": " + reason); });
  schedule();
  reply(text(response));
}

NODOHelperCommandResponse Daemon::answer(const Work& work, const Tell& logFailure) {
  try {
    NODOHelperCommandResponse response = work(now_());
    lastLookFailure_.clear();
    return response;
  } catch (const std::exception& error) {
    logFailure(error.what());
    return NODOHelperCommandResponse::failure(error);
  }
}

// ---- passes

void Daemon::passByItself(const std::string& occasion) {
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
  loop_.setLockHeld(keeper_.isHeld());
}

}  // namespace nodo::nodod
