#include <platform/linux/BusAddress.h>
#include <platform/linux/BusConnection.h>
#include <platform/linux/DaemonBus.h>

#include <chrono>
#include <cstdint>
#include <stdexcept>

namespace nodo {
namespace {

using std::chrono::microseconds;

constexpr std::chrono::seconds connectLimit(2);
// The daemon asks only the bus itself and polkit.
constexpr microseconds callLimit(std::chrono::seconds(2));

std::string addressOf(DaemonBus::Kind kind, const std::string& given, const std::string& action) {
  if (kind == DaemonBus::Kind::system) {
    return systemBusAddress();
  }
  if (kind == DaemonBus::Kind::address) {
    return given;
  }
  const std::optional<std::string> session = sessionBusAddress();
  if (!session) {
    throw std::runtime_error("cannot " + action + ": this user has none");
  }
  return *session;
}

DaemonBus open(DaemonBus::Kind kind, const std::string& name, const std::string& address = "") {
  const std::string action = "connect to " + name;
  // No request needs a descriptor, and whoever may send a message could use up all that this
  // process may have, and with them the lock.
  BusHandle connection =
      openBus(addressOf(kind, address, action), BusDescriptors::refused, connectLimit, action);
  DaemonBus bus{
      .connection = SystemdHandle<sd_bus>(connection.release()), .kind = kind, .name = name};
  checkSystemd(sd_bus_set_method_call_timeout(bus.connection.get(),
                                              static_cast<std::uint64_t>(callLimit.count())),
               action);
  return bus;
}

}  // namespace

DaemonBus openDaemonBus(const std::optional<std::string>& choice) {
  if (choice == "system") {
    return open(DaemonBus::Kind::system, "the system bus");
  }
  if (choice == "session") {
    return open(DaemonBus::Kind::session, "the session bus");
  }
  if (choice) {
    return open(DaemonBus::Kind::address, "the bus at " + *choice, *choice);
  }
  try {
    return openDaemonBus("system");
  } catch (const std::runtime_error& noSystemBus) {
    try {
      return openDaemonBus("session");
    } catch (const std::runtime_error& noSessionBus) {
      throw std::runtime_error(std::string(noSystemBus.what()) + ", and " + noSessionBus.what());
    }
  }
}

}  // namespace nodo
