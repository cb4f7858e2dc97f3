#include <NODOCore/hooks/HookScriptStartedPath.h>

#include <fstream>

namespace nodo {

std::string startedPath() {
  std::ifstream arguments("/proc/self/cmdline", std::ios::binary);
  std::string path;
  std::getline(arguments, path, '\0');
  return path;
}

}  // namespace nodo
