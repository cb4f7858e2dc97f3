#pragma once

#include <NODOCore/helper/HelperConnection.h>

#include <memory>
#include <optional>
#include <string>

namespace nodo {

/// This system's way to the daemon. `bus` says where it is looked for: "system", "session", a bus
/// address, or nothing for the system bus when it can be reached and else the session bus; of no
/// meaning on macOS. Makes nothing but an object: what cannot be reached shows itself when a
/// request is made.
std::shared_ptr<const HelperConnecting> helperConnecting(const std::optional<std::string>& bus);

/// Why a daemon that is installed here refuses this very program, where a refusal does not tell: on
/// macOS it just ends the connection. For people; nothing when there is no such reason.
std::optional<std::string> refusalOfThisProgram();

}  // namespace nodo
