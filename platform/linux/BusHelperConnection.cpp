#include <platform/linux/BusConnection.h>
#include <platform/linux/BusHelperConnection.h>
#include <platform/linux/BusHelperLink.h>
#include <platform/linux/HelperBusNames.h>
#include <platform/linux/Noncharacters.h>
#include <platform/linux/SdBusLibrary.h>

#include <functional>
#include <utility>
#include <variant>

namespace nodo {
namespace {

void appendRequesterPart(sd_bus_message* call, const char* key,
                         const std::optional<std::string>& value, const std::string& action) {
  if (value) {
    const std::string text = withoutNoncharacters(*value);
    checkBus(SdBusLibrary::shared().messageAppend(call, "{sv}", key, "s", text.c_str()), action);
  }
}

// A request as the bus carries it: the method's name and its arguments.
struct BusForm {
  using Form = std::pair<std::string, std::function<void(sd_bus_message*)>>;

  Form operator()(const StatusRequest&) const { return {helper_bus::status, nullptr}; }

  Form operator()(const EnableManualRequest& request) const {
    return {helper_bus::enableManual, [request](sd_bus_message* call) {
              checkBus(SdBusLibrary::shared().messageAppend(call, "x", request.minutes),
                       "send the minutes");
            }};
  }

  Form operator()(const EnableManualV2Request& request) const {
    return {helper_bus::enableManualV2, [request](sd_bus_message* call) {
              const SdBusLibrary& library = SdBusLibrary::shared();
              const std::string action = "send who asks";
              checkBus(
                  library.messageAppend(call, "xb", request.minutes, request.extendOnly ? 1 : 0),
                  action);
              checkBus(library.messageOpenContainer(call, 'a', "{sv}"), action);
              appendRequesterPart(call, "name", request.requesterName, action);
              appendRequesterPart(call, "context", request.requesterContext, action);
              appendRequesterPart(call, "event", request.requesterEvent, action);
              checkBus(library.messageCloseContainer(call), action);
            }};
  }

  Form operator()(const StopRequest&) const { return {helper_bus::stop, nullptr}; }

  Form operator()(const ReconcileRequest&) const { return {helper_bus::reconcile, nullptr}; }

  Form operator()(const RepairRequest&) const { return {helper_bus::repair, nullptr}; }
};

class BusHelperProxy : public NODOHelperXPCProtocol {
 public:
  BusHelperProxy(std::shared_ptr<BusHelperLink> link, HelperConnection::ErrorHandler failed)
      : link_(std::move(link)), failed_(std::move(failed)) {}

  void perform(HelperRequest request, HelperReply reply) override {
    auto [member, arguments] = std::visit(BusForm(), request);
    link_->post({.member = std::move(member),
                 .arguments = std::move(arguments),
                 .reply = std::move(reply),
                 .failed = failed_});
  }

 private:
  std::shared_ptr<BusHelperLink> link_;
  HelperConnection::ErrorHandler failed_;
};

}  // namespace

BusHelperConnection::BusHelperConnection(std::optional<std::string> bus, std::string serviceName)
    : link_(std::make_shared<BusHelperLink>(std::move(bus), std::move(serviceName))) {}

BusHelperConnection::~BusHelperConnection() {
  link_->end();
}

void BusHelperConnection::setInvalidationHandler(Handler handler) {
  invalidated_ = std::move(handler);
}

void BusHelperConnection::setInterruptionHandler(Handler handler) {
  link_->setInterruptionHandler(std::move(handler));
}

std::shared_ptr<NODOHelperXPCProtocol> BusHelperConnection::remoteProxy(ErrorHandler errorHandler) {
  return std::make_shared<BusHelperProxy>(link_, std::move(errorHandler));
}

void BusHelperConnection::serve(std::chrono::steady_clock::time_point deadline) {
  link_->serve(deadline);
}

void BusHelperConnection::invalidate() {
  link_->end();
  if (const Handler told = std::exchange(invalidated_, nullptr)) {
    told();
  }
}

BusHelperConnecting::BusHelperConnecting(std::optional<std::string> bus) : bus_(std::move(bus)) {}

std::unique_ptr<HelperConnection> BusHelperConnecting::privilegedConnection(
    const std::string& machServiceName) const {
  return std::make_unique<BusHelperConnection>(bus_, machServiceName);
}

}  // namespace nodo
