#include <platform/linux/BusConnection.h>
#include <platform/linux/BusHelperConnection.h>
#include <platform/linux/BusHelperLink.h>
#include <platform/linux/HelperBusNames.h>
#include <platform/linux/Noncharacters.h>

#include <cstdint>
#include <utility>

namespace nodo {
namespace {

using Arguments = std::function<void(sd_bus_message*)>;

void appendRequesterPart(sd_bus_message* call, const char* key,
                         const std::optional<std::string>& value, const std::string& action) {
  if (value) {
    const std::string text = withoutNoncharacters(*value);
    checkSystemd(sd_bus_message_append(call, "{sv}", key, "s", text.c_str()), action);
  }
}

// A request that the bus carries: see NODOHelperXPCProtocol for what each means.
class BusHelperProxy : public NODOHelperXPCProtocol {
 public:
  BusHelperProxy(std::shared_ptr<BusHelperLink> link, HelperConnection::ErrorHandler failed)
      : link_(std::move(link)), failed_(std::move(failed)) {}

  void status(HelperReply reply) override { post(helper_bus::status, {}, std::move(reply)); }

  void enableManual(std::int64_t minutes, HelperReply reply) override {
    post(
        helper_bus::enableManual,
        [minutes](sd_bus_message* call) {
          checkSystemd(sd_bus_message_append(call, "x", minutes), "send the minutes");
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
          const std::string action = "send who asks";
          checkSystemd(sd_bus_message_append(call, "xb", minutes, extendOnly ? 1 : 0), action);
          checkSystemd(sd_bus_message_open_container(call, 'a', "{sv}"), action);
          appendRequesterPart(call, "name", requesterName, action);
          appendRequesterPart(call, "context", requesterContext, action);
          appendRequesterPart(call, "event", requesterEvent, action);
          checkSystemd(sd_bus_message_close_container(call), action);
        },
        std::move(reply));
  }

  void stop(HelperReply reply) override { post(helper_bus::stop, {}, std::move(reply)); }

  void reconcile(HelperReply reply) override { post(helper_bus::reconcile, {}, std::move(reply)); }

  void repair(HelperReply reply) override { post(helper_bus::repair, {}, std::move(reply)); }

 private:
  void post(const std::string& member, Arguments arguments, HelperReply reply) {
    link_->post({.member = member,
                 .arguments = std::move(arguments),
                 .reply = std::move(reply),
                 .failed = failed_});
  }

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
