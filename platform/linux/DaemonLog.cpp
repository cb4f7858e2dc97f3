#include <NODOCore/base/Text.h>
#include <platform/linux/DaemonLog.h>

#include <cstdio>

namespace nodo {

void logLine(const std::string& text) {
  const std::string line = escapedForDisplay(text) + "\n";
  // A log that cannot be written is nothing that a daemon could do anything about.
  std::fwrite(line.data(), 1, line.size(), stderr);
}

}  // namespace nodo
