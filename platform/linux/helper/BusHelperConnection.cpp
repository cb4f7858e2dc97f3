#include <platform/linux/helper/BusHelperConnection.h>
#include <platform/linux/helper/BusRequest.h>

#include <cstdint>
#include <utility>

namespace nodo {
namespace {

constexpr std::uint64_t noTimeLimit = UINT64_MAX;  // the deadline of `serve` ends the wait

std::string absenceOn(const std::string& bus) {
  return "the daemon nodod is not running on " + describedBus(bus) + "; start it with '" +
         (bus == systemBus ? "systemctl start nodod" : "nodod --bus " + bus) + "'";
}

bool isServed(ClientBus& bus, const std::string& serviceName, BusClock::time_point deadline) {
  BusConnection connection(std::move(bus.connection), timeUntil(deadline));
  const bool isThere = hasOwner(connection, serviceName);
  bus.connection = connection.release();
  return isThere;
}

void fail(const HelperConnection::ErrorHandler& failed, const std::string& reason,
          bool daemonIsThere) {
  failed(std::make_exception_ptr(HelperConnectionError(reason, daemonIsThere)));
}

bool saysThatNobodyIsThere(const sd_bus_error& error) {
  return sd_bus_error_has_names(&error, SD_BUS_ERROR_SERVICE_UNKNOWN,
                                SD_BUS_ERROR_NAME_HAS_NO_OWNER) != 0;
}

ClientBus open(const std::string& bus, BusClock::time_point deadline) {
  return {.connection = openBus(bus, BusDescriptors::refused, deadline),
          .name = bus,
          .absence = absenceOn(bus)};
}

}  // namespace

ClientBus findDaemon(const std::optional<std::string>& choice, const std::string& serviceName,
                     BusClock::time_point deadline) {
  ClientBus found;
  connectToChosenBus(choice, [&](const std::string& bus) { found = open(bus, deadline); });
  if (choice || found.name != systemBus || isServed(found, serviceName, deadline)) {
    return found;
  }
  // A session bus that hangs leaves time to ask on the system's, which may start the daemon.
  const auto now = BusClock::now();
  const auto halfTime = now + (deadline - now) / 2;
  std::string noSessionBus;
  try {
    ClientBus own = open(sessionBus, halfTime);
    if (isServed(own, serviceName, halfTime)) {
      return own;
    }
  } catch (const BusTimeout&) {
    noSessionBus = ", and the session bus does not answer";
  } catch (const BusError& error) {
    noSessionBus = std::string(", and ") + error.what();
  }
  found.absence =
      noSessionBus.empty()
          ? "the daemon nodod is not running on the system bus or the session bus; start it with "
            "'systemctl start nodod', or one of your own with 'nodod --bus session'"
          : "the daemon nodod is not running on the system bus" + noSessionBus +
                "; start it with 'systemctl start nodod'";
  return found;
}

class BusHelperConnection::Proxy : public NODOHelperXPCProtocol {
 public:
  Proxy(BusHelperConnection& connection, ErrorHandler failed)
      : connection_(connection), failed_(std::move(failed)) {}

  void perform(HelperRequest request, HelperReply reply) override {
    connection_.ask({.request = std::move(request), .reply = std::move(reply), .failed = failed_});
  }

 private:
  BusHelperConnection& connection_;
  ErrorHandler failed_;
};

BusHelperConnection::BusHelperConnection(std::optional<std::string> bus, std::string serviceName,
                                         AbsentDaemon absent)
    : choice_(std::move(bus)), serviceName_(std::move(serviceName)), absent_(absent) {}

void BusHelperConnection::setInvalidationHandler(Handler handler) {
  invalidated_ = std::move(handler);
}

void BusHelperConnection::setInterruptionHandler(Handler handler) {
  interrupted_ = std::move(handler);
}

std::shared_ptr<NODOHelperXPCProtocol> BusHelperConnection::remoteProxy(ErrorHandler errorHandler) {
  return std::make_shared<Proxy>(*this, std::move(errorHandler));
}

void BusHelperConnection::ask(Asked asked) {
  if (hasEnded_) {
    fail(asked.failed, "the connection to the daemon has ended", false);
    return;
  }
  asked_.push_back(std::move(asked));
}

void BusHelperConnection::serve(BusClock::time_point deadline) {
  try {
    connect(deadline);
  } catch (const std::exception& error) {
    for (const Asked& asked : std::exchange(asked_, {})) {
      fail(asked.failed, error.what(), false);
    }
    return;
  }
  try {
    exchange(deadline);
  } catch (const std::exception&) {
    bus_.connection.reset();
    sent_.clear();
    if (interrupted_) {
      interrupted_();
    }
  }
}

void BusHelperConnection::invalidate() {
  hasEnded_ = true;
  bus_.connection.reset();
  asked_.clear();
  sent_.clear();
  if (const Handler told = std::exchange(invalidated_, nullptr)) {
    told();
  }
}

void BusHelperConnection::connect(BusClock::time_point deadline) {
  if (bus_.connection) {
    return;
  }
  try {
    bus_ = findDaemon(choice_, serviceName_, deadline);
  } catch (const BusTimeout&) {
    // Whoever waits finds the time used up.
  }
}

void BusHelperConnection::exchange(BusClock::time_point deadline) {
  sd_bus* const bus = bus_.connection.get();
  if (bus == nullptr) {
    return;
  }
  for (const Asked& asked : std::exchange(asked_, {})) {
    send(asked);
  }
  const std::string action = "stay connected to " + describedBus(bus_.name);
  while (!sent_.empty() && processBus(bus, deadline, action)) {
  }
}

void BusHelperConnection::send(const Asked& asked) {
  try {
    const BusMessage call = newRequest(bus_.connection.get(), serviceName_, asked.request);
    if (absent_ == AbsentDaemon::staysAbsent) {
      checkSystemd(sd_bus_message_set_auto_start(call.get(), 0), "ask the daemon nodod");
    }
    sent_.push_back({.connection = *this, .asked = asked});
    const int result = sd_bus_call_async(bus_.connection.get(), nullptr, call.get(), onAnswer,
                                         &sent_.back(), noTimeLimit);
    if (result < 0) {
      sent_.pop_back();
    }
    checkSystemd(result, "ask the daemon nodod");
  } catch (const BusError& error) {
    fail(asked.failed, error.what(), false);
  }
}

int BusHelperConnection::onAnswer(sd_bus_message* message, void* sent, sd_bus_error* /*error*/) {
  const Sent& self = *static_cast<Sent*>(sent);
  self.connection.hearAnswer(self, message);
  return 1;
}

void BusHelperConnection::hearAnswer(const Sent& sent, sd_bus_message* message) {
  const bool isError = sd_bus_message_is_method_error(message, nullptr) > 0;
  // A bus that went away leaves such an answer, too; that is for the interruption handler.
  if (isError && sd_bus_is_open(bus_.connection.get()) <= 0) {
    return;
  }
  const Asked asked = sent.asked;
  sent_.remove_if([&sent](const Sent& each) { return &each == &sent; });
  if (isError) {
    const sd_bus_error& error = *sd_bus_message_get_error(message);
    fail(asked.failed, explained(error), !saysThatNobodyIsThere(error));
    return;
  }
  const char* text = nullptr;
  if (sd_bus_message_read(message, "s", &text) < 0 || text == nullptr) {
    fail(asked.failed,
         "the daemon nodod gave an answer without a text; it may be of another version", true);
    return;
  }
  asked.reply(std::string(text));
}

std::string BusHelperConnection::explained(const sd_bus_error& error) const {
  if (saysThatNobodyIsThere(error)) {
    return bus_.absence;
  }
  if (sd_bus_error_has_name(&error, SD_BUS_ERROR_NO_REPLY) != 0) {
    return "the daemon nodod ended before it answered";
  }
  std::string text =
      error.message != nullptr && *error.message != '\0' ? error.message : error.name;
  if (sd_bus_error_has_names(&error, SD_BUS_ERROR_UNKNOWN_METHOD, SD_BUS_ERROR_UNKNOWN_OBJECT,
                             SD_BUS_ERROR_UNKNOWN_INTERFACE, SD_BUS_ERROR_INVALID_ARGS) != 0) {
    return "the daemon nodod does not know the request, it may be of another version: " + text;
  }
  return text;
}

}  // namespace nodo
