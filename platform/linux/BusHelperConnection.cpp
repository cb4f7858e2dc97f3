#include <NODOCore/base/SignalsBlocked.h>
#include <platform/linux/BusConnection.h>
#include <platform/linux/BusHelperConnection.h>
#include <platform/linux/BusHelperLink.h>
#include <platform/linux/BusHelperMailbox.h>
#include <platform/linux/HelperBusNames.h>
#include <platform/linux/Noncharacters.h>
#include <platform/linux/SdBusLibrary.h>

#include <cstdint>
#include <utility>

namespace nodo {
namespace {

using Arguments = std::function<void(sd_bus_message*)>;

void appendRequesterPart(sd_bus_message* call, const char* key,
                         const std::optional<std::string>& value, const std::string& action) {
  if (value) {
    const std::string text = withoutNoncharacters(*value);
    checkBus(SdBusLibrary::shared().messageAppend(call, "{sv}", key, "s", text.c_str()), action);
  }
}

// A request that the bus carries: see NODOHelperXPCProtocol for what each means.
class BusHelperProxy : public NODOHelperXPCProtocol {
 public:
  BusHelperProxy(std::shared_ptr<BusHelperMailbox> mailbox, HelperConnection::ErrorHandler failed)
      : mailbox_(std::move(mailbox)), failed_(std::move(failed)) {}

  void status(HelperReply reply) override { post(helper_bus::status, {}, std::move(reply)); }

  void enableManual(std::int64_t minutes, HelperReply reply) override {
    post(
        helper_bus::enableManual,
        [minutes](sd_bus_message* call) {
          checkBus(SdBusLibrary::shared().messageAppend(call, "x", minutes), "send the minutes");
        },
        std::move(reply));
  }

  void enableManualV2(std::int64_t minutes, bool extendOnly,
                      std::optional<std::string> requesterName,
                      std::optional<std::string> requesterContext,
                      std::optional<std::string> requesterEvent, HelperReply reply) override {
    post(
        helper_bus::enableManualV2,
        [=](sd_bus_message* call) {
          const SdBusLibrary& library = SdBusLibrary::shared();
          const std::string action = "send who asks";
          checkBus(library.messageAppend(call, "xb", minutes, extendOnly ? 1 : 0), action);
          checkBus(library.messageOpenContainer(call, 'a', "{sv}"), action);
          appendRequesterPart(call, "name", requesterName, action);
          appendRequesterPart(call, "context", requesterContext, action);
          appendRequesterPart(call, "event", requesterEvent, action);
          checkBus(library.messageCloseContainer(call), action);
        },
        std::move(reply));
  }

  void stop(HelperReply reply) override { post(helper_bus::stop, {}, std::move(reply)); }

  void reconcile(HelperReply reply) override { post(helper_bus::reconcile, {}, std::move(reply)); }

  void repair(HelperReply reply) override { post(helper_bus::repair, {}, std::move(reply)); }

 private:
  void post(const std::string& member, Arguments arguments, HelperReply reply) {
    if (!mailbox_->post({.member = member,
                         .arguments = std::move(arguments),
                         .reply = std::move(reply),
                         .failed = failed_})) {
      failed_(std::make_exception_ptr(
          HelperConnectionError("the connection to the daemon has ended", false)));
    }
  }

  std::shared_ptr<BusHelperMailbox> mailbox_;
  HelperConnection::ErrorHandler failed_;
};

}  // namespace

BusHelperConnection::BusHelperConnection(std::optional<std::string> bus, std::string serviceName)
    : bus_(std::move(bus)),
      serviceName_(std::move(serviceName)),
      mailbox_(std::make_shared<BusHelperMailbox>()) {}

BusHelperConnection::~BusHelperConnection() {
  BusHelperConnection::invalidate();
}

void BusHelperConnection::setInvalidationHandler(Handler handler) {
  invalidated_ = std::move(handler);
}

void BusHelperConnection::setInterruptionHandler(Handler handler) {
  interrupted_ = std::move(handler);
}

void BusHelperConnection::resume() {
  if (thread_.joinable()) {
    return;
  }
  // Signals are for the threads of the program; this one is not to be disturbed.
  const SignalsBlocked inherited;
  thread_ = std::thread([bus = bus_, serviceName = serviceName_, mailbox = mailbox_,
                         interrupted = interrupted_, invalidated = invalidated_] {
    BusHelperLink(bus, serviceName, *mailbox, interrupted).run();
    if (invalidated) {
      invalidated();
    }
  });
}

std::shared_ptr<NODOHelperXPCProtocol> BusHelperConnection::remoteProxy(ErrorHandler errorHandler) {
  return std::make_shared<BusHelperProxy>(mailbox_, std::move(errorHandler));
}

void BusHelperConnection::invalidate() {
  mailbox_->close();
  if (thread_.joinable()) {
    thread_.join();
  }
}

BusHelperConnecting::BusHelperConnecting(std::optional<std::string> bus) : bus_(std::move(bus)) {}

std::unique_ptr<HelperConnection> BusHelperConnecting::privilegedConnection(
    const std::string& machServiceName) const {
  return std::make_unique<BusHelperConnection>(bus_, machServiceName);
}

}  // namespace nodo
