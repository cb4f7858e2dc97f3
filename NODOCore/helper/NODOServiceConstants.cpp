#include <NODOCore/helper/NODOServiceConstants.h>

namespace nodo {

const std::vector<std::string_view>& NODOServiceConstants::trustedXPCClientBundleIdentifiers() {
  static const std::vector<std::string_view> identifiers{appBundleIdentifier, ctlBundleIdentifier};
  return identifiers;
}

}  // namespace nodo
