#include <platform/linux/BusChoice.h>
#include <platform/linux/BusConnection.h>
#include <platform/linux/BusError.h>
#include <platform/linux/BusHelperLink.h>
#include <platform/linux/HelperBusNames.h>
#include <platform/linux/SdBusLibrary.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <ctime>
#include <string_view>
#include <utility>

#include <poll.h>

namespace nodo {
namespace {

constexpr std::uint64_t noTimeLimit = UINT64_MAX;  // the client's own ends the request

std::string commandToStartDaemon(const std::string& bus) {
  return bus == "system" ? "systemctl start nodod" : "nodod --bus " + bus;
}

// What is left until an instant of the monotonic clock in microseconds.
std::optional<timespec> timeUntil(std::uint64_t instant) {
  if (instant == noTimeLimit) {
    return std::nullopt;
  }
  constexpr std::uint64_t second = 1'000'000;
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  const std::uint64_t passed = static_cast<std::uint64_t>(now.tv_sec) * second +
                               static_cast<std::uint64_t>(now.tv_nsec) / 1000;
  const std::uint64_t left = instant > passed ? instant - passed : 0;
  return timespec{.tv_sec = static_cast<std::time_t>(left / second),
                  .tv_nsec = static_cast<long>(left % second) * 1000};
}

// Each error is made for its receiver alone, who may look at it on another thread.
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

BusHelperLink::BusHelperLink(std::optional<std::string> bus, std::string serviceName,
                             BusHelperMailbox& mailbox, HelperConnection::Handler interrupted)
    : choice_(std::move(bus)),
      serviceName_(std::move(serviceName)),
      mailbox_(mailbox),
      interrupted_(std::move(interrupted)) {}

BusHelperLink::~BusHelperLink() = default;

void BusHelperLink::run() {
  std::string reason = "the connection to the daemon has had its answer";
  try {
    connectToChosenBus(choice_, [this](const std::string& bus) { connectTo(bus); });
    serveOrInterrupt();
  } catch (const std::exception& error) {
    reason = error.what();
  }
  refuse(reason);
}

void BusHelperLink::connectTo(const std::string& bus) {
  busName_ = busName(bus);
  startCommand_ = commandToStartDaemon(bus);
  const std::string action = "connect to " + busName_;
  bus_ = startBus(busAddress(bus), BusDescriptors::refused, action);
  while (!mailbox_.isClosed()) {
    const int ready = SdBusLibrary::shared().isReady(bus_.get());
    checkBus(ready, action);
    if (ready > 0) {
      return;
    }
    const int processed = SdBusLibrary::shared().process(bus_.get(), nullptr);
    checkBus(processed, action);
    if (processed == 0) {
      wait();
    }
  }
}

void BusHelperLink::serveOrInterrupt() {
  try {
    serve();
  } catch (const std::exception&) {
    if (interrupted_) {
      interrupted_();
    }
    throw;
  }
}

void BusHelperLink::serve() {
  while (!mailbox_.isClosed()) {
    for (const BusHelperRequest& request : mailbox_.take()) {
      send(request);
    }
    const int processed = SdBusLibrary::shared().process(bus_.get(), nullptr);
    checkBus(processed, "stay connected to " + busName_);
    // The bus is let go of while the caller is still busy with its answer, not when it waits for
    // this thread.
    if (answers_ > 0 && answers_ == pending_.size()) {
      return;
    }
    if (processed == 0) {
      wait();
    }
  }
}

void BusHelperLink::refuse(const std::string& reason) {
  bus_.reset();
  while (!mailbox_.isClosed()) {
    for (const BusHelperRequest& request : mailbox_.take()) {
      fail(request, reason, false);
    }
    wait();
  }
}

// Until the bus or the mailbox has something, or the bus library wants to look after its own time
// limits.
void BusHelperLink::wait() {
  std::array<pollfd, 2> sources{{{.fd = mailbox_.descriptor(), .events = POLLIN, .revents = 0},
                                 {.fd = -1, .events = 0, .revents = 0}}};
  std::uint64_t instant = noTimeLimit;
  if (bus_) {
    const SdBusLibrary& library = SdBusLibrary::shared();
    const int events = library.getEvents(bus_.get());
    checkBus(events, "wait for " + busName_);
    sources[1].fd = library.getFd(bus_.get());
    checkBus(sources[1].fd, "wait for " + busName_);
    sources[1].events = static_cast<short>(events);
    checkBus(library.getTimeout(bus_.get(), &instant), "wait for " + busName_);
  }
  const std::optional<timespec> limit = timeUntil(instant);
  if (::ppoll(sources.data(), sources.size(), limit ? &*limit : nullptr, nullptr) > 0 &&
      sources[0].revents != 0) {
    mailbox_.acknowledge();
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
  const SdBusLibrary& library = SdBusLibrary::shared();
  const std::string action = "ask the daemon nodod";
  sd_bus_message* made = nullptr;
  checkBus(library.messageNewMethodCall(bus_.get(), &made, serviceName_.c_str(),
                                        helper_bus::objectPath(serviceName_).c_str(),
                                        helper_bus::interface, request.member.c_str()),
           action);
  const BusMessage call(made);
  if (request.arguments) {
    request.arguments(call.get());
  }
  Pending& pending = pending_.emplace_back(Pending{.link = *this, .request = request});
  checkBus(library.callAsync(bus_.get(), nullptr, call.get(), received, &pending, noTimeLimit),
           action);
}

int BusHelperLink::received(sd_bus_message* message, void* pending, sd_bus_error* /*error*/) {
  const Pending& waiting = *static_cast<Pending*>(pending);
  waiting.link.answer(waiting.request, message);
  return 1;
}

void BusHelperLink::answer(const BusHelperRequest& request, sd_bus_message* message) {
  const SdBusLibrary& library = SdBusLibrary::shared();
  const bool isError = library.messageIsMethodError(message, nullptr) > 0;
  // A bus that went away leaves such an answer, too; that is for the interruption handler.
  if (isError && library.isOpen(bus_.get()) <= 0) {
    return;
  }
  ++answers_;
  if (isError) {
    const sd_bus_error& error = *library.messageGetError(message);
    fail(request, explained(error), !saysThatNobodyIsThere(error));
    return;
  }
  const char* text = nullptr;
  if (library.messageRead(message, "s", &text) < 0 || text == nullptr) {
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
