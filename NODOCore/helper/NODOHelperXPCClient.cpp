#include <NODOCore/base/Errors.h>
#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/helper/NODOHelperXPCClient.h>
#include <NODOCore/helper/NODOHelperXPCProtocol.h>

#include <algorithm>
#include <chrono>
#include <utility>

namespace nodo {

NODOHelperClientError::NODOHelperClientError(Case errorCase, const char* text, std::string reason,
                                             bool helperIsThere)
    : case_(errorCase),
      reason_(std::move(reason)),
      helperIsThere_(helperIsThere),
      message_(text + reason_) {}

NODOHelperClientError NODOHelperClientError::unavailable(std::string reason, bool helperIsThere) {
  return {Case::unavailable, "Helper unavailable: ", std::move(reason), helperIsThere};
}

NODOHelperClientError NODOHelperClientError::invalidResponse(std::string reason) {
  return {Case::invalidResponse, "Invalid helper response: ", std::move(reason), true};
}

NODOHelperClientError NODOHelperClientError::timedOut() {
  return {Case::timedOut, "Helper request timed out", "", true};
}

void XPCRequestCompletion::complete(NODOHelperCommandResponse response) {
  complete(Outcome(std::move(response)));
}

void XPCRequestCompletion::complete(std::exception_ptr error) {
  complete(Outcome(std::move(error)));
}

void XPCRequestCompletion::complete(Outcome outcome) {
  const std::lock_guard guard(lock_);
  if (!result_) {
    result_ = std::move(outcome);
    isSignalled_ = true;
    signalled_.notify_one();
  }
}

void XPCRequestCompletion::signal() {
  const std::lock_guard guard(lock_);
  isSignalled_ = true;
  signalled_.notify_one();
}

NODOHelperCommandResponse XPCRequestCompletion::wait(
    std::chrono::steady_clock::time_point deadline) {
  std::unique_lock guard(lock_);
  if (!signalled_.wait_until(guard, deadline, [this] { return isSignalled_; })) {
    throw NODOHelperClientError::timedOut();
  }
  if (!result_) {
    throw NODOHelperClientError::invalidResponse("missing completion");
  }
  // Moved out, as a handler may let go of this completion at any later time: the error must not be
  // destroyed on its thread while the caller reads it.
  if (auto* error = std::get_if<std::exception_ptr>(&*result_)) {
    std::rethrow_exception(std::move(*error));
  }
  return std::get<NODOHelperCommandResponse>(std::move(*result_));
}

namespace {

using Clock = std::chrono::steady_clock;

// A longer limit than a year is cut to that, which the clock can hold. Below zero, or no number, it
// is no time at all.
Clock::time_point deadlineAfter(double seconds) {
  constexpr double year = 366.0 * 24 * 3600;
  const double bounded = seconds > 0 ? std::min(seconds, year) : 0;
  return Clock::now() + std::chrono::duration_cast<Clock::duration>(Seconds(bounded));
}

NODOHelperCommandResponse responseFrom(const std::optional<std::string>& text) {
  if (!text || !isValidUTF8(*text)) {
    throw NODOHelperClientError::invalidResponse("non-UTF8 payload");
  }
  auto response = decodeJSON<NODOHelperCommandResponse>(*text);
  if (response.error) {
    throw NODOHelperClientError::unavailable(*response.error);
  }
  return response;
}

HelperReply replyTo(const std::shared_ptr<XPCRequestCompletion>& completion) {
  return [completion](const std::optional<std::string>& text) {
    std::exception_ptr error;
    try {
      completion->complete(responseFrom(text));
      return;
    } catch (...) {
      error = std::current_exception();
    }
    // Only here, where this thread no longer holds the error itself.
    completion->complete(std::move(error));
  };
}

HelperConnection::Handler endBy(const std::shared_ptr<XPCRequestCompletion>& completion,
                                const NODOHelperClientError& error) {
  return [completion, error] { completion->complete(std::make_exception_ptr(error)); };
}

class Invalidation {
 public:
  explicit Invalidation(HelperConnection& connection) : connection_(connection) {}

  Invalidation(const Invalidation&) = delete;
  Invalidation& operator=(const Invalidation&) = delete;

  ~Invalidation() { connection_.invalidate(); }

 private:
  HelperConnection& connection_;
};

Date endAfter(std::int64_t minutes, Date now) {
  std::int64_t seconds = 0;
  if (__builtin_mul_overflow(minutes, 60, &seconds)) {
    programmingFault("the end of the manual timer overflows");
  }
  return now + Seconds(static_cast<double>(seconds));
}

}  // namespace

NODOHelperCommandResponse NODOHelperXPCClient::ask(HelperRequest request) const {
  const std::unique_ptr<HelperConnection> connection =
      connecting->privilegedConnection(machServiceName);
  const Invalidation invalidation(*connection);
  const auto completion = std::make_shared<XPCRequestCompletion>();
  connection->setInvalidationHandler(
      endBy(completion, NODOHelperClientError::unavailable("connection invalidated", false)));
  connection->setInterruptionHandler(
      endBy(completion, NODOHelperClientError::unavailable("connection interrupted")));
  connection->resume();
  const std::shared_ptr<NODOHelperXPCProtocol> daemon = connection->remoteProxy(
      [completion](std::exception_ptr error) { completion->complete(std::move(error)); });
  if (!daemon) {
    throw NODOHelperClientError::unavailable("unable to create XPC proxy");
  }
  daemon->perform(std::move(request), replyTo(completion));
  const Clock::time_point deadline = deadlineAfter(timeout);
  connection->serve(deadline);
  return completion->wait(deadline);
}

StatusReport NODOHelperXPCClient::askForStatus(HelperRequest request) const {
  NODOHelperCommandResponse response = ask(std::move(request));
  if (!response.status) {
    throw NODOHelperClientError::invalidResponse("missing status report");
  }
  return *std::move(response.status);
}

StatusReport NODOHelperXPCClient::status() const {
  return askForStatus(StatusRequest{});
}

StatusReport NODOHelperXPCClient::stop() const {
  return askForStatus(StopRequest{});
}

StatusReport NODOHelperXPCClient::repair() const {
  return askForStatus(RepairRequest{});
}

DaemonRunReport NODOHelperXPCClient::reconcile() const {
  NODOHelperCommandResponse response = ask(ReconcileRequest{});
  if (!response.run) {
    throw NODOHelperClientError::invalidResponse("missing run report");
  }
  return *std::move(response.run);
}

StatusReport NODOHelperXPCClient::enableManual(std::int64_t minutes, bool extendOnly,
                                               const std::optional<ActivationRequester>& requester,
                                               Date now) const {
  if (!extendOnly && !requester) {
    return askForStatus(EnableManualRequest{minutes});
  }
  EnableManualV2Request request{.minutes = minutes, .extendOnly = extendOnly};
  if (requester) {
    request.requesterName = requester->name;
    request.requesterContext = requester->context;
    request.requesterEvent = requester->event;
  }
  try {
    return askForStatus(std::move(request));
  } catch (...) {
    // Whatever it was: a daemon of the first generation may fail in any way at a request that it
    // does not know, and a daemon that is not there fails at the next request as well.
  }
  return extendOnly ? extendByHand(minutes, now) : askForStatus(EnableManualRequest{minutes});
}

StatusReport NODOHelperXPCClient::extendByHand(std::int64_t minutes, Date now) const {
  const StatusReport before = status();
  const Date end = endAfter(minutes, now);
  if (before.state.manualUntil && *before.state.manualUntil > end) {
    return reconcile().status;
  }
  return askForStatus(EnableManualRequest{minutes});
}

}  // namespace nodo
