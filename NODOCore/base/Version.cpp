#include <NODOCore/base/Version.h>

namespace nodo {

std::string_view version() {
  return NODO_VERSION;  // given by the build from the project's version
}

}  // namespace nodo
