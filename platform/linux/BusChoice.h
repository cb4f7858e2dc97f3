#pragma once

#include <functional>
#include <optional>
#include <string>

/// Which bus daemon and clients meet on: "system", "session" or an address.
namespace nodo {

/// For people: "the system bus", "the bus at unix:path=/run/bus".
std::string busName(const std::string& bus);

/// Throws BusError when it is to be the session bus and this user has none.
std::string busAddress(const std::string& bus);

/// Calls `connect` with `choice`; without one with "system" and, if that throws a BusError, with
/// "session". If that throws one, too, throws a BusError with both reasons.
void connectToChosenBus(const std::optional<std::string>& choice,
                        const std::function<void(const std::string& bus)>& connect);

}  // namespace nodo
