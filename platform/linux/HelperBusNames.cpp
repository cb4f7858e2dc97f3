#include <platform/linux/HelperBusNames.h>

#include <algorithm>

namespace nodo::helper_bus {

std::string objectPath(const std::string& serviceName) {
  std::string path = "/" + serviceName;
  std::replace(path.begin(), path.end(), '.', '/');
  return path;
}

}  // namespace nodo::helper_bus
