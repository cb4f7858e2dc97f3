#include <platform/linux/BusChoice.h>
#include <platform/linux/BusConnection.h>
#include <platform/linux/DaemonBus.h>

#include <chrono>
#include <cstdint>

namespace nodo {
namespace {

using std::chrono::microseconds;

constexpr std::chrono::seconds connectLimit(2);
// The daemon asks only the bus itself and polkit.
constexpr microseconds callLimit(std::chrono::seconds(2));

DaemonBus::Kind kindOf(const std::string& bus) {
  return bus == "system"    ? DaemonBus::Kind::system
         : bus == "session" ? DaemonBus::Kind::session
                            : DaemonBus::Kind::address;
}

DaemonBus open(const std::string& choice) {
  const std::string action = "connect to " + busName(choice);
  // No request needs a descriptor, and whoever may send a message could use up all that this
  // process may have, and with them the lock.
  const std::string address = busAddress(choice);
  DaemonBus bus{.connection = openBus(address, BusDescriptors::refused, connectLimit, action),
                .kind = kindOf(choice),
                .address = address,
                .name = busName(choice)};
  checkSystemd(sd_bus_set_method_call_timeout(bus.connection.get(),
                                              static_cast<std::uint64_t>(callLimit.count())),
               action);
  return bus;
}

}  // namespace

DaemonBus openDaemonBus(const std::optional<std::string>& choice) {
  DaemonBus bus;
  connectToChosenBus(choice, [&bus](const std::string& chosen) { bus = open(chosen); });
  return bus;
}

}  // namespace nodo
