#pragma once

#include <NODOCore/control/DaemonSettings.h>
#include <platform/DaemonMachine.h>
#include <programs/shared/Help.h>
#include <programs/shared/ProgramFrame.h>

#include <string>
#include <variant>
#include <vector>

namespace nodo::nodod {

/// A setting that an option sets.
struct ChosenSetting {
  const Setting* setting;
  SettingValue value;
};

/// How the daemon is to run.
struct Options {
  std::optional<std::string> stateFolder;  ///< absent: what the system has for it
  std::optional<std::string> bus;          ///< absent: the system bus if there is one
  PowerChoice power = PowerChoice::automatic;
  std::optional<std::string> config;  ///< the settings file; absent: where the system has it
  std::vector<ChosenSetting> chosen;  ///< over what that file says
  std::optional<std::string> log;     ///< absent: standard error
  bool once = false;                  ///< one pass, then the end
  bool showSettings = false;          ///< tell them, then the end
};

using ParsedCommandLine = std::variant<Options, HelpText, UsageError>;

/// What `arguments` (without the program's name) ask for; help in lines of `columns` characters at
/// most. Pure.
ParsedCommandLine parseCommandLine(const std::vector<std::string>& arguments,
                                   int columns = usualColumns);

}  // namespace nodo::nodod
