#include <platform/HelperMachine.h>
#include <platform/macos/SecurityCodeSigning.h>
#include <platform/macos/XPCHelperConnection.h>

#include <filesystem>
#include <system_error>

namespace nodo {

std::shared_ptr<const HelperConnecting> helperConnecting(
    [[maybe_unused]] const std::optional<std::string>& bus) {
  return std::make_shared<XPCHelperConnecting>();
}

std::optional<std::string> refusalOfThisProgram() {
  const std::filesystem::path daemons = "/Library/LaunchDaemons";
  std::error_code ignored;
  if (!std::filesystem::exists(daemons / NODOServiceConstants::helperPlistName, ignored) ||
      NODOXPCClientAuthentication::validateSelf(SecurityCodeSigning()).isAccepted()) {
    return std::nullopt;
  }
  return "the daemon refuses this copy of nodoctl: it is not signed by the same team";
}

DaemonStanding daemonStanding([[maybe_unused]] const std::optional<std::string>& bus,
                              [[maybe_unused]] Seconds limit) {
  return {};
}

std::optional<SafetyPolicy> daemonLimits([[maybe_unused]] const std::optional<std::string>& bus,
                                         [[maybe_unused]] Seconds limit) {
  return std::nullopt;
}

std::string_view restartCommand() {
  return "sudo launchctl kickstart -k system/com.quintavel.nodo.helper";
}

}  // namespace nodo
