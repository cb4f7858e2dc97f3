#include <platform/linux/bus/BusConnection.h>
#include <platform/linux/logind/Logind.h>
#include <platform/linux/news/EventLoop.h>
#include <platform/linux/news/LogindSignals.h>

#include <exception>
#include <string_view>
#include <utility>

namespace nodo {
namespace {

constexpr char action[] = "listen to logind";

// The bus sends what matches a rule, and knows who sent it. What is addressed to this connection
// comes without one, and from anybody.
bool isFromLogind(sd_bus_message* message) {
  return sd_bus_message_get_destination(message) == nullptr;
}

// Whether the PropertiesChanged in `message` names `wanted`, with or without its new value. One
// that is not understood may name it.
bool mayNameProperty(sd_bus_message* message, std::string_view wanted) {
  const char* interface = nullptr;
  if (sd_bus_message_read(message, "s", &interface) < 0 ||
      std::string_view(interface) != logindManager.interface) {
    return false;
  }
  if (sd_bus_message_enter_container(message, 'a', "{sv}") < 0) {
    return true;
  }
  const char* name = nullptr;
  while (sd_bus_message_enter_container(message, 'e', "sv") > 0) {
    if (sd_bus_message_read(message, "s", &name) < 0 || name == wanted ||
        sd_bus_message_skip(message, "v") < 0 || sd_bus_message_exit_container(message) < 0) {
      return true;
    }
  }
  if (sd_bus_message_exit_container(message) < 0 ||
      sd_bus_message_enter_container(message, 'a', "s") < 0) {
    return true;
  }
  while (sd_bus_message_read(message, "s", &name) > 0) {
    if (name == wanted) {
      return true;
    }
  }
  return false;
}

}  // namespace

LogindSignals::LogindSignals(EventLoop& loop, sd_bus* shared, Listener listener)
    : loop_(loop), shared_(shared), listener_(std::move(listener)) {
  listen();
}

void LogindSignals::repair() {
  if (!isListening_) {
    listen();
  }
}

void LogindSignals::listen() {
  connection_ = {};
  try {
    if (shared_ == nullptr) {
      connection_.own = startBus(systemBus, BusDescriptors::refused);
      connection_.lost = loop_.attach(connection_.own.get(), onLost, this, action);
    }
    subscribe(shared_ != nullptr ? shared_ : connection_.own.get());
    isListening_ = true;
  } catch (const std::exception& error) {
    connection_ = {};
    logLoss(error.what());
  }
}

void LogindSignals::subscribe(sd_bus* bus) {
  // Without waiting for the bus's agreement: one that hangs must not hold up the daemon. Without
  // somebody who hears of a refusal the library would take it for the end of the connection.
  const auto listen = [this, bus](const BusObject& object, const char* signal,
                                  sd_bus_message_handler_t handler,
                                  SystemdHandle<sd_bus_slot>& slot) {
    checkSystemd(sd_bus_match_signal_async(bus, into(slot), object.service, object.path,
                                           object.interface, signal, handler, onAnswer, this),
                 action);
  };
  listen(logindManager, "PrepareForSleep", onSleep, connection_.sleep);
  listen(logindProperties, "PropertiesChanged", onProperties, connection_.properties);
}

void LogindSignals::logLoss(const std::string& reason) {
  if (!std::exchange(lossWasLogged_, true)) {
    loop_.log("no news from logind: " + reason);
  }
}

int LogindSignals::onAnswer(sd_bus_message* answer, void* signals, sd_bus_error* /*error*/) {
  auto& self = *static_cast<LogindSignals*>(signals);
  self.loop_.protect([&self, answer] {
    const sd_bus_error* error = sd_bus_message_get_error(answer);
    if (error != nullptr) {
      self.isListening_ = false;
      self.logLoss(error->message != nullptr ? error->message : error->name);
    } else if (++self.connection_.agreedTo == 2) {
      self.lossWasLogged_ = false;
    }
  });
  return 0;
}

int LogindSignals::onSleep(sd_bus_message* message, void* signals, sd_bus_error* /*error*/) {
  auto& self = *static_cast<LogindSignals*>(signals);
  if (!isFromLogind(message)) {
    return 0;
  }
  self.loop_.protect([&self, message] {
    int begins = 0;
    if (sd_bus_message_read(message, "b", &begins) < 0 || begins == 0) {
      self.listener_.resumed();
    }
  });
  return 0;
}

int LogindSignals::onProperties(sd_bus_message* message, void* signals, sd_bus_error* /*error*/) {
  auto& self = *static_cast<LogindSignals*>(signals);
  if (!isFromLogind(message)) {
    return 0;
  }
  self.loop_.protect([&self, message] {
    if (mayNameProperty(message, "LidClosed")) {
      self.listener_.lidChanged();
    }
  });
  return 0;
}

int LogindSignals::onLost(sd_bus_message* /*message*/, void* signals, sd_bus_error* /*error*/) {
  auto& self = *static_cast<LogindSignals*>(signals);
  // The connection itself must outlive its own callback.
  self.isListening_ = false;
  self.loop_.protect([&self] { self.logLoss("the system bus has gone"); });
  return 0;
}

}  // namespace nodo
