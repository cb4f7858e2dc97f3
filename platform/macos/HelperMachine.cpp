#include <platform/HelperMachine.h>
#include <platform/macos/XPCHelperConnection.h>

namespace nodo {

std::shared_ptr<const HelperConnecting> helperConnecting(
    [[maybe_unused]] const std::optional<std::string>& bus) {
  return std::make_shared<XPCHelperConnecting>();
}

}  // namespace nodo
