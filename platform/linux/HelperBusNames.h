#pragma once

#include <string>

namespace nodo {

/// What the daemon is called on the bus, for its clients and itself. Its well-known name is
/// NODOServiceConstants::helperMachServiceName.
namespace helper_bus {

inline constexpr char interface[] = "com.quintavel.nodo.Helper1";

inline constexpr char status[] = "Status";
inline constexpr char enableManual[] = "EnableManual";
inline constexpr char enableManualV2[] = "EnableManualV2";
inline constexpr char stop[] = "Stop";
inline constexpr char reconcile[] = "Reconcile";
inline constexpr char repair[] = "Repair";

/// The path of a service's object: "/com/example" for "com.example".
std::string objectPath(const std::string& serviceName);

}  // namespace helper_bus
}  // namespace nodo
