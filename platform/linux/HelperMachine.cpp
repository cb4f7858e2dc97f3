#include <platform/HelperMachine.h>
#include <platform/linux/BusHelperConnection.h>

namespace nodo {

std::shared_ptr<const HelperConnecting> helperConnecting(const std::optional<std::string>& bus) {
  return std::make_shared<BusHelperConnecting>(bus);
}

}  // namespace nodo
