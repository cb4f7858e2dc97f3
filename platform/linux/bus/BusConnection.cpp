#include <platform/linux/bus/BusConnection.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace nodo {
namespace {

// As the library itself escapes a value in an address.
std::string escapedForAddress(std::string_view value) {
  constexpr std::string_view plain =
      "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz_-/.";
  constexpr std::string_view digits = "0123456789abcdef";
  std::string escaped;
  for (const char character : value) {
    if (plain.find(character) != std::string_view::npos) {
      escaped += character;
      continue;
    }
    const auto byte = static_cast<unsigned char>(character);
    escaped += '%';
    escaped += digits[byte / 16];
    escaped += digits[byte % 16];
  }
  return escaped;
}

// Where the library itself looks for the buses. Its own ways to them connect at once, when it is
// too late to say what the connection is not to carry.
std::string addressOf(const std::string& bus) {
  if (bus == systemBus) {
    const char* given = ::secure_getenv("DBUS_SYSTEM_BUS_ADDRESS");
    return given != nullptr ? given : "unix:path=/run/dbus/system_bus_socket";
  }
  if (bus != sessionBus) {
    return bus;
  }
  if (const char* given = ::secure_getenv("DBUS_SESSION_BUS_ADDRESS")) {
    return given;
  }
  if (const char* folder = ::secure_getenv("XDG_RUNTIME_DIR")) {
    return "unix:path=" + escapedForAddress(folder) + "/bus";
  }
  throw BusError("there is no session bus for this user");
}

std::string connectingTo(const std::string& bus) {
  return "connect to " + describedBus(bus);
}

std::uint64_t microseconds(BusClock::duration duration) {
  const auto count = std::chrono::duration_cast<std::chrono::microseconds>(duration).count();
  return count > 0 ? static_cast<std::uint64_t>(count) : 0;
}

// Whether nobody answered the call, by the bus's and the library's own errors.
bool isUnanswered(const sd_bus_error& error) {
  return sd_bus_error_is_set(&error) == 0 ||
         sd_bus_error_has_names(&error, SD_BUS_ERROR_SERVICE_UNKNOWN,
                                SD_BUS_ERROR_NAME_HAS_NO_OWNER, SD_BUS_ERROR_NO_REPLY,
                                SD_BUS_ERROR_TIMEOUT, SD_BUS_ERROR_DISCONNECTED,
                                SD_BUS_ERROR_NO_SERVER) != 0;
}

}  // namespace

void checkSystemd(int result, const std::string& action) {
  if (result < 0) {
    throw BusError("cannot " + action + ": " + std::strerror(-result));
  }
}

std::string describedBus(const std::string& bus) {
  return bus == systemBus || bus == sessionBus ? "the " + bus + " bus" : "the bus at " + bus;
}

void connectToChosenBus(const std::optional<std::string>& choice,
                        const std::function<void(const std::string& bus)>& connect) {
  if (choice) {
    connect(*choice);
    return;
  }
  try {
    connect(systemBus);
  } catch (const BusTimeout&) {
    throw;
  } catch (const BusError& noSystemBus) {
    try {
      connect(sessionBus);
    } catch (const BusError& noSessionBus) {
      throw BusError(std::string(noSystemBus.what()) + ", and " + noSessionBus.what());
    }
  }
}

std::chrono::milliseconds timeUntil(BusClock::time_point deadline) {
  using std::chrono::milliseconds;
  return std::max(std::chrono::ceil<milliseconds>(deadline - BusClock::now()), milliseconds(1));
}

BusHandle startBus(const std::string& bus, BusDescriptors descriptors) {
  const std::string address = addressOf(bus);
  const std::string action = connectingTo(bus);
  BusHandle made;
  checkSystemd(sd_bus_new(into(made)), action);
  checkSystemd(sd_bus_set_address(made.get(), address.c_str()), action);
  checkSystemd(sd_bus_set_bus_client(made.get(), 1), action);
  checkSystemd(sd_bus_negotiate_fds(made.get(), descriptors == BusDescriptors::taken ? 1 : 0),
               action);
  checkSystemd(sd_bus_start(made.get()), action);
  return made;
}

BusHandle openBus(const std::string& bus, BusDescriptors descriptors,
                  BusClock::time_point deadline) {
  const std::string action = connectingTo(bus);
  BusHandle made = startBus(bus, descriptors);
  // Signing in needs a few exchanges, which the library would otherwise do without a time limit.
  for (;;) {
    const int ready = sd_bus_is_ready(made.get());
    checkSystemd(ready, action);
    if (ready > 0) {
      return made;
    }
    if (!processBus(made.get(), deadline, action)) {
      throw BusTimeout("cannot " + action + ": it does not answer");
    }
  }
}

bool processBus(sd_bus* bus, BusClock::time_point deadline, const std::string& action) {
  const int processed = sd_bus_process(bus, nullptr);
  checkSystemd(processed, action);
  if (processed > 0) {
    return true;
  }
  const std::uint64_t left = microseconds(deadline - BusClock::now());
  if (left == 0) {
    return false;
  }
  const int waited = sd_bus_wait(bus, left);
  checkSystemd(waited == -EINTR ? 0 : waited, action);  // a signal ends the wait, no more
  return true;
}

BusMessage newCall(sd_bus* bus, const BusObject& object, const std::string& method,
                   const std::string& action) {
  BusMessage call;
  checkSystemd(sd_bus_message_new_method_call(bus, into(call), object.service, object.path,
                                              object.interface, method.c_str()),
               action);
  return call;
}

BusConnection::BusConnection(const std::string& bus, BusLimits limits, BusDescriptors descriptors)
    : bus_(openBus(bus, descriptors, BusClock::now() + limits.connecting)),
      callLimit_(limits.call) {}

BusMessage BusConnection::newCall(const BusObject& object, const std::string& method) const {
  const std::string action = "make a call of " + method;
  BusMessage call = nodo::newCall(bus_.get(), object, method, action);
  checkSystemd(sd_bus_message_set_auto_start(call.get(), 0), action);
  return call;
}

BusMessage BusConnection::send(const BusMessage& call) const {
  sd_bus_error error{};
  const std::unique_ptr<sd_bus_error, void (*)(sd_bus_error*)> freed(&error, sd_bus_error_free);
  BusMessage reply;
  const int result =
      sd_bus_call(bus_.get(), call.get(), microseconds(callLimit_), &error, into(reply));
  const bool isRefused = sd_bus_is_ready(bus_.get()) > 0 && !isUnanswered(error);
  dropWhatOthersSent();
  if (result >= 0) {
    return reply;
  }
  const std::string reason = error.message != nullptr ? error.message : std::strerror(-result);
  if (isRefused) {
    throw BusRefusal(reason);
  }
  if (result == -ETIMEDOUT) {
    throw BusTimeout(reason);
  }
  throw BusError(reason);
}

void BusConnection::dropWhatOthersSent() const {
  const auto deadline = BusClock::now() + callLimit_;
  while (sd_bus_process(bus_.get(), nullptr) > 0 && BusClock::now() < deadline) {
  }
}

namespace {

BusMessage askBus(const BusConnection& bus, const std::string& question, const std::string& name) {
  constexpr BusObject busItself{.service = "org.freedesktop.DBus",
                                .path = "/org/freedesktop/DBus",
                                .interface = "org.freedesktop.DBus"};
  const BusMessage call = bus.newCall(busItself, question);
  checkSystemd(sd_bus_message_append(call.get(), "s", name.c_str()), "ask the bus");
  return bus.send(call);
}

}  // namespace

bool hasOwner(const BusConnection& bus, const std::string& name) {
  const BusMessage reply = askBus(bus, "NameHasOwner", name);
  int isOwned = 0;
  checkSystemd(sd_bus_message_read(reply.get(), "b", &isOwned), "read who is there");
  return isOwned != 0;
}

std::uint32_t userOf(const BusConnection& bus, const std::string& name) {
  const BusMessage reply = askBus(bus, "GetConnectionUnixUser", name);
  std::uint32_t user = 0;
  checkSystemd(sd_bus_message_read(reply.get(), "u", &user), "read whose a name is");
  return user;
}

}  // namespace nodo
