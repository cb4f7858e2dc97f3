#include <platform/linux/BusAddress.h>
#include <platform/linux/BusChoice.h>
#include <platform/linux/BusError.h>

namespace nodo {

std::string busName(const std::string& bus) {
  return bus == "system" || bus == "session" ? "the " + bus + " bus" : "the bus at " + bus;
}

std::string busAddress(const std::string& bus) {
  if (bus == "system") {
    return systemBusAddress();
  }
  if (bus != "session") {
    return bus;
  }
  const std::optional<std::string> session = sessionBusAddress();
  if (!session) {
    throw BusError("there is no session bus for this user");
  }
  return *session;
}

void connectToChosenBus(const std::optional<std::string>& choice,
                        const std::function<void(const std::string& bus)>& connect) {
  if (choice) {
    connect(*choice);
    return;
  }
  try {
    connect("system");
  } catch (const BusError& noSystemBus) {
    try {
      connect("session");
    } catch (const BusError& noSessionBus) {
      throw BusError(std::string(noSystemBus.what()) + ", and " + noSessionBus.what());
    }
  }
}

}  // namespace nodo
