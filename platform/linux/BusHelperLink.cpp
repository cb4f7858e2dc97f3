#include <platform/linux/BusChoice.h>
#include <platform/linux/BusConnection.h>
#include <platform/linux/BusError.h>
#include <platform/linux/BusHelperLink.h>
#include <platform/linux/HelperBusNames.h>

#include <algorithm>
#include <cstdint>
#include <string_view>
#include <utility>

namespace nodo {
namespace {

constexpr std::uint64_t noTimeLimit = UINT64_MAX;  // the deadline of `serve` ends the wait

std::string commandToStartDaemon(const std::string& bus) {
  return bus == "system" ? "systemctl start nodod" : "nodod --bus " + bus;
}

void fail(const BusHelperRequest& request, const std::string& reason, bool daemonIsThere) {
  request.failed(std::make_exception_ptr(HelperConnectionError(reason, daemonIsThere)));
}

bool isOneOf(const char* name, std::initializer_list<std::string_view> names) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

bool saysThatNobodyIsThere(const sd_bus_error& error) {
  return isOneOf(error.name, {SD_BUS_ERROR_SERVICE_UNKNOWN, SD_BUS_ERROR_NAME_HAS_NO_OWNER});
}

}  // namespace

struct BusHelperLink::Pending {
  BusHelperLink& link;
  BusHelperRequest request;
};

BusHelperLink::BusHelperLink(std::optional<std::string> bus, std::string serviceName)
    : choice_(std::move(bus)), serviceName_(std::move(serviceName)) {}

BusHelperLink::~BusHelperLink() = default;

void BusHelperLink::setInterruptionHandler(HelperConnection::Handler handler) {
  interrupted_ = std::move(handler);
}

void BusHelperLink::post(BusHelperRequest request) {
  if (hasEnded_) {
    fail(request, "the connection to the daemon has ended", false);
    return;
  }
  posted_.push_back(std::move(request));
}

void BusHelperLink::serve(Clock::time_point deadline) {
  try {
    connect(deadline);
  } catch (const std::exception& error) {
    for (const BusHelperRequest& request : std::exchange(posted_, {})) {
      fail(request, error.what(), false);
    }
    return;
  }
  try {
    exchange(deadline);
  } catch (const std::exception&) {
    bus_.reset();
    pending_.clear();
    if (interrupted_) {
      interrupted_();
    }
  }
}

void BusHelperLink::end() {
  hasEnded_ = true;
  bus_.reset();
  posted_.clear();
  pending_.clear();
}

void BusHelperLink::connect(Clock::time_point deadline) {
  if (!bus_) {
    connectToChosenBus(choice_, [&](const std::string& bus) { connectTo(bus, deadline); });
  }
}

void BusHelperLink::connectTo(const std::string& bus, Clock::time_point deadline) {
  busName_ = busName(bus);
  startCommand_ = commandToStartDaemon(bus);
  try {
    bus_ = openBus(busAddress(bus), BusDescriptors::refused, deadline, "connect to " + busName_);
  } catch (const BusTimeout&) {
    // One that hangs is no reason to try another.
  }
}

void BusHelperLink::exchange(Clock::time_point deadline) {
  if (!bus_) {
    return;
  }
  for (const BusHelperRequest& request : std::exchange(posted_, {})) {
    send(request);
  }
  const std::string action = "stay connected to " + busName_;
  while (!pending_.empty()) {
    if (!processBus(bus_.get(), deadline, action)) {
      return;
    }
  }
}

void BusHelperLink::send(const BusHelperRequest& request) {
  std::string reason;
  try {
    sendOrThrow(request);
    return;
  } catch (const BusError& error) {
    reason = error.what();
  }
  fail(request, reason, false);
}

void BusHelperLink::sendOrThrow(const BusHelperRequest& request) {
  const std::string action = "ask the daemon nodod";
  sd_bus_message* made = nullptr;
  checkSystemd(sd_bus_message_new_method_call(bus_.get(), &made, serviceName_.c_str(),
                                              helper_bus::objectPath(serviceName_).c_str(),
                                              helper_bus::interface, request.member.c_str()),
               action);
  const BusMessage call(made);
  if (request.arguments) {
    request.arguments(call.get());
  }
  Pending& pending = pending_.emplace_back(Pending{.link = *this, .request = request});
  const int sent =
      sd_bus_call_async(bus_.get(), nullptr, call.get(), received, &pending, noTimeLimit);
  if (sent < 0) {
    pending_.pop_back();
  }
  checkSystemd(sent, action);
}

int BusHelperLink::received(sd_bus_message* message, void* pending, sd_bus_error* /*error*/) {
  const Pending& asked = *static_cast<Pending*>(pending);
  asked.link.answer(asked, message);
  return 1;
}

void BusHelperLink::answer(const Pending& asked, sd_bus_message* message) {
  const bool isError = sd_bus_message_is_method_error(message, nullptr) > 0;
  // A bus that went away leaves such an answer, too; that is for the interruption handler.
  if (isError && sd_bus_is_open(bus_.get()) <= 0) {
    return;
  }
  const BusHelperRequest request = asked.request;
  pending_.remove_if([&asked](const Pending& each) { return &each == &asked; });
  if (isError) {
    const sd_bus_error& error = *sd_bus_message_get_error(message);
    fail(request, explained(error), !saysThatNobodyIsThere(error));
    return;
  }
  const char* text = nullptr;
  if (sd_bus_message_read(message, "s", &text) < 0 || text == nullptr) {
    fail(request, "the daemon nodod gave an answer without a text; it may be of another version",
         true);
    return;
  }
  request.reply(std::string(text));
}

std::string BusHelperLink::explained(const sd_bus_error& error) const {
  std::string text =
      error.message != nullptr && *error.message != '\0' ? error.message : error.name;
  if (saysThatNobodyIsThere(error)) {
    return "the daemon nodod is not running on " + busName_ + "; start it with '" + startCommand_ +
           "'";
  }
  if (isOneOf(error.name, {SD_BUS_ERROR_NO_REPLY})) {
    return "the daemon nodod ended before it answered";
  }
  if (isOneOf(error.name, {SD_BUS_ERROR_UNKNOWN_METHOD, SD_BUS_ERROR_UNKNOWN_OBJECT,
                           SD_BUS_ERROR_UNKNOWN_INTERFACE, SD_BUS_ERROR_INVALID_ARGS})) {
    return "the daemon nodod does not know the request, it may be of another version: " + text;
  }
  return text;
}

}  // namespace nodo
