#include <NODOCore/helper/NODOHelperXPCClient.h>
#include <programs/nodoctl/helper/ImpatientConnecting.h>

#include <utility>

namespace nodo::nodoctl {
namespace {

using Flag = std::shared_ptr<std::atomic<bool>>;

// How far one connection's request has come.
struct Progress {
  std::atomic<bool> wasSent = false;
  std::atomic<bool> hasEnded = false;
};

// Notes every answer of the daemon on its way to the client.
class NotingProxy : public NODOHelperXPCProtocol {
 public:
  NotingProxy(std::shared_ptr<NODOHelperXPCProtocol> daemon, std::shared_ptr<Progress> progress)
      : daemon_(std::move(daemon)), progress_(std::move(progress)) {}

  void perform(HelperRequest request, HelperReply reply) override {
    daemon_->perform(std::move(request), noting(std::move(reply)));
  }

 private:
  HelperReply noting(HelperReply reply) const {
    progress_->wasSent = true;
    return [reply = std::move(reply), progress = progress_](std::optional<std::string> text) {
      progress->hasEnded = true;
      reply(std::move(text));
    };
  }

  std::shared_ptr<NODOHelperXPCProtocol> daemon_;
  std::shared_ptr<Progress> progress_;
};

class NotingConnection : public HelperConnection {
 public:
  NotingConnection(std::unique_ptr<HelperConnection> connection, Flag gaveUp)
      : connection_(std::move(connection)), gaveUp_(std::move(gaveUp)) {}

  void setInvalidationHandler(Handler handler) override {
    connection_->setInvalidationHandler(noting(std::move(handler)));
  }

  void setInterruptionHandler(Handler handler) override {
    connection_->setInterruptionHandler(noting(std::move(handler)));
  }

  void resume() override { connection_->resume(); }

  std::shared_ptr<NODOHelperXPCProtocol> remoteProxy(ErrorHandler errorHandler) override {
    auto daemon = connection_->remoteProxy(
        [errorHandler = std::move(errorHandler), progress = progress_](std::exception_ptr error) {
          progress->hasEnded = true;
          errorHandler(std::move(error));
        });
    return daemon ? std::make_shared<NotingProxy>(std::move(daemon), progress_) : nullptr;
  }

  void serve(std::chrono::steady_clock::time_point deadline) override {
    connection_->serve(deadline);
  }

  // Whoever was asked and has not answered by now was waited for in vain. Looked at first, as
  // ending the connection tells the handlers.
  void invalidate() override {
    if (progress_->wasSent && !progress_->hasEnded) {
      *gaveUp_ = true;
    }
    connection_->invalidate();
  }

 private:
  Handler noting(Handler handler) const {
    return [handler = std::move(handler), progress = progress_] {
      progress->hasEnded = true;
      if (handler) {
        handler();
      }
    };
  }

  std::unique_ptr<HelperConnection> connection_;
  Flag gaveUp_;
  std::shared_ptr<Progress> progress_ = std::make_shared<Progress>();
};

}  // namespace

ImpatientConnecting::ImpatientConnecting(std::shared_ptr<const HelperConnecting> connecting)
    : connecting_(std::move(connecting)), gaveUp_(std::make_shared<std::atomic<bool>>(false)) {}

std::unique_ptr<HelperConnection> ImpatientConnecting::privilegedConnection(
    const std::string& machServiceName) const {
  if (*gaveUp_) {
    throw NODOHelperClientError::timedOut();
  }
  return std::make_unique<NotingConnection>(connecting_->privilegedConnection(machServiceName),
                                            gaveUp_);
}

}  // namespace nodo::nodoctl
