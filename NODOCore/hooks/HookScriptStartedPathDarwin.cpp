#include <NODOCore/hooks/HookScriptStartedPath.h>

#include <crt_externs.h>

namespace nodo {

std::string startedPath() {
  const char* const* arguments = *_NSGetArgv();
  return arguments != nullptr && arguments[0] != nullptr ? arguments[0] : "";
}

}  // namespace nodo
