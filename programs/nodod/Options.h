#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/base/TextEnum.h>
#include <NODOCore/control/PowerDecision.h>
#include <platform/DaemonMachine.h>
#include <programs/shared/DefaultPolicy.h>

#include <array>
#include <optional>
#include <string>

namespace nodo {

template <>
struct EnumTexts<PowerChoice> {
  static constexpr std::array cases{
      EnumText{PowerChoice::automatic, "auto"}, EnumText{PowerChoice::pmset, "pmset"},
      EnumText{PowerChoice::logind, "logind"}, EnumText{PowerChoice::simulated, "simulated"}};
};

}  // namespace nodo

namespace nodo::nodod {

/// How the daemon is to run.
struct Options {
  std::optional<std::string> stateFolder;  ///< absent: what the system has for it
  std::optional<std::string> bus;          ///< absent: the system bus if there is one
  PowerChoice power = PowerChoice::automatic;
  SafetyPolicy policy = defaultPolicy;
  Seconds releaseGrace{1};  ///< how long after the end of a timer the release is due
  bool once = false;        ///< one pass, then the end
};

}  // namespace nodo::nodod
