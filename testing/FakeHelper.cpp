#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/helper/NODOHelperXPCProtocol.h>
#include <testing/FakeHelper.h>

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <variant>

namespace nodo::test {
namespace {

constexpr std::string_view sendStep = "send ";

std::string envelopeText(const NODOHelperCommandResponse& response) {
  return encodeJSON(response, JSONLayout::compact);
}

std::string firstWord(const std::string& text) {
  return text.substr(0, text.find(' '));
}

std::string quotedOrNil(const std::optional<std::string>& text) {
  return text ? '"' + *text + '"' : "nil";
}

struct RequestText {
  std::string operator()(const StatusRequest&) const { return "status"; }

  std::string operator()(const EnableManualRequest& request) const {
    return "enableManual " + std::to_string(request.minutes);
  }

  std::string operator()(const EnableManualV2Request& request) const {
    return "enableManualV2 " + std::to_string(request.minutes) +
           (request.extendOnly ? " extend-only " : " replace ") +
           quotedOrNil(request.requesterName) + ' ' + quotedOrNil(request.requesterContext) + ' ' +
           quotedOrNil(request.requesterEvent);
  }

  std::string operator()(const StopRequest&) const { return "stop"; }

  std::string operator()(const ReconcileRequest&) const { return "reconcile"; }

  std::string operator()(const RepairRequest&) const { return "repair"; }
};

}  // namespace

std::string requestText(const HelperRequest& request) {
  return std::visit(RequestText(), request);
}

/// What outlives a connection: its handlers, which its requests may call late.
class FakeHelperLink : public std::enable_shared_from_this<FakeHelperLink> {
 public:
  explicit FakeHelperLink(const FakeHelper& helper) : helper_(helper) {}

  void setInvalidationHandler(HelperConnection::Handler handler) {
    helper_.note("set invalidation handler");
    set(invalidationHandler_, std::move(handler));
  }

  void setInterruptionHandler(HelperConnection::Handler handler) {
    helper_.note("set interruption handler");
    set(interruptionHandler_, std::move(handler));
  }

  void setErrorHandler(HelperConnection::ErrorHandler handler) {
    helper_.note("proxy");
    set(errorHandler_, std::move(handler));
  }

  void resume() {
    helper_.note("resume");
    if (!helper_.isInstalled) {
      runInvalidationHandler();
    }
  }

  void invalidate() {
    helper_.note("invalidate");
    runInvalidationHandler();
  }

  void runInvalidationHandler() { run(invalidationHandler_); }

  void runInterruptionHandler() { run(interruptionHandler_); }

  void fail(std::exception_ptr error) { run(errorHandler_, std::move(error)); }

  void request(std::string text, HelperReply reply) {
    helper_.note(std::string(sendStep) + text);
    const FakeHelper::Answer answer = helper_.answerTo(firstWord(text));
    FakeHelperRequest request;
    request.text = std::move(text);
    request.reply_ = std::move(reply);
    request.link_ = shared_from_this();
    answer(request);
  }

  const FakeHelper& helper() const { return helper_; }

 private:
  template <class Handler>
  void set(Handler& member, Handler handler) {
    const std::lock_guard guard(mutex_);
    member = std::move(handler);
  }

  template <class Handler, class... Arguments>
  void run(const Handler& member, Arguments... arguments) {
    Handler handler;
    {
      const std::lock_guard guard(mutex_);
      handler = member;
    }
    if (handler) {
      handler(std::move(arguments)...);
    }
  }

  const FakeHelper& helper_;
  std::mutex mutex_;
  HelperConnection::Handler invalidationHandler_;
  HelperConnection::Handler interruptionHandler_;
  HelperConnection::ErrorHandler errorHandler_;
};

namespace {

class FakeProxy : public NODOHelperXPCProtocol {
 public:
  explicit FakeProxy(std::shared_ptr<FakeHelperLink> link) : link_(std::move(link)) {}

  void perform(HelperRequest request, HelperReply reply) override {
    link_->request(requestText(request), std::move(reply));
  }

 private:
  std::shared_ptr<FakeHelperLink> link_;
};

class FakeConnection : public HelperConnection {
 public:
  explicit FakeConnection(std::shared_ptr<FakeHelperLink> link) : link_(std::move(link)) {}

  void setInvalidationHandler(Handler handler) override {
    link_->setInvalidationHandler(std::move(handler));
  }

  void setInterruptionHandler(Handler handler) override {
    link_->setInterruptionHandler(std::move(handler));
  }

  void resume() override { link_->resume(); }

  std::shared_ptr<NODOHelperXPCProtocol> remoteProxy(ErrorHandler errorHandler) override {
    link_->setErrorHandler(std::move(errorHandler));
    return link_->helper().offersProtocol ? std::make_shared<FakeProxy>(link_) : nullptr;
  }

  void invalidate() override { link_->invalidate(); }

 private:
  std::shared_ptr<FakeHelperLink> link_;
};

}  // namespace

void FakeHelperRequest::reply(const StatusReport& status) const {
  reply(envelopeText(NODOHelperCommandResponse::success(status)));
}

void FakeHelperRequest::reply(const DaemonRunReport& run) const {
  reply(envelopeText(NODOHelperCommandResponse::success(run)));
}

void FakeHelperRequest::refuse(const std::string& error) const {
  reply(envelopeText({.error = error}));
}

void FakeHelperRequest::fail(std::exception_ptr error) const {
  link_->fail(std::move(error));
}

void FakeHelperRequest::fail(const std::string& error) const {
  // A copy of such an error shares its text, so ours must be gone before another thread sees it:
  // its count of owners is out of the thread sanitizer's sight.
  std::exception_ptr made = std::make_exception_ptr(std::runtime_error(error));
  fail(std::move(made));
}

void FakeHelperRequest::interrupt() const {
  link_->runInterruptionHandler();
}

void FakeHelperRequest::invalidate() const {
  link_->runInvalidationHandler();
}

void FakeHelper::answer(const std::string& request, Answer answer) {
  answers_[request] = std::move(answer);
}

FakeHelper::Answer FakeHelper::answerTo(const std::string& name) const {
  if (const auto found = answers_.find(name); found != answers_.end()) {
    return found->second;
  }
  if (name == "enableManualV2" && !knowsSecondGeneration) {
    return [](const FakeHelperRequest& request) { request.fail("unknown selector"); };
  }
  if (name == "reconcile") {
    return [this](const FakeHelperRequest& request) { request.reply(run); };
  }
  return [this](const FakeHelperRequest& request) { request.reply(status); };
}

std::unique_ptr<HelperConnection> FakeHelper::privilegedConnection(
    const std::string& machServiceName) const {
  if (refusal) {
    throw std::runtime_error(*refusal);
  }
  note("connect " + machServiceName);
  return std::make_unique<FakeConnection>(std::make_shared<FakeHelperLink>(*this));
}

void FakeHelper::note(const std::string& step) const {
  const std::lock_guard guard(mutex_);
  steps_.push_back(step);
}

std::vector<std::string> FakeHelper::steps() const {
  const std::lock_guard guard(mutex_);
  return steps_;
}

std::vector<std::string> FakeHelper::requests() const {
  std::vector<std::string> found;
  for (const std::string& step : steps()) {
    if (step.starts_with(sendStep)) {
      found.push_back(step.substr(sendStep.size()));
    }
  }
  return found;
}

std::size_t FakeHelper::openConnections() const {
  const std::vector<std::string> done = steps();
  const auto made = std::count_if(done.begin(), done.end(),
                                  [](const auto& step) { return step.starts_with("connect "); });
  return static_cast<std::size_t>(made - std::count(done.begin(), done.end(), "invalidate"));
}

}  // namespace nodo::test
