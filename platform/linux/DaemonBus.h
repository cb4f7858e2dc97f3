#pragma once

#include <platform/linux/EventLoop.h>

#include <optional>
#include <string>

namespace nodo {

/// The bus on which the daemon offers itself.
struct DaemonBus {
  enum class Kind { system, session, address };

  BusHandle connection;
  Kind kind = Kind::system;
  std::string address;
  std::string name;  ///< for people: "the system bus"
};

/// Connects, within two seconds, to `choice`: "system", "session", a bus address, or nothing for
/// the system bus when it can be reached and else the session bus. The bus passes it no file
/// descriptors. Throws BusError.
DaemonBus openDaemonBus(const std::optional<std::string>& choice);

}  // namespace nodo
